#include "server-linux/x11_clipboard.h"

#include "server-linux/clipboard_text.h"
#include "server-linux/helper_log.h"

#include <xcb/xcb.h>
#include <xcb/xfixes.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <mutex>
#include <poll.h>
#include <sys/eventfd.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace velmora::ServerHelper {

namespace {

using Clock = std::chrono::steady_clock;

// An owner that has not answered by then will not: its reader gets nothing and the next one starts.
constexpr auto answerTime = std::chrono::seconds(5);
// A requestor that stops taking the pieces of a large text for this long is given up.
constexpr auto requestorTime = std::chrono::seconds(10);
// Larger texts go in pieces of this size (ICCCM's INCR), as common toolkits do.
constexpr std::size_t largestPiece = 256 * 1024;

template <typename Reply>
struct Freed {
    void operator()(Reply* reply) const { std::free(reply); }
};
template <typename Reply>
using ReplyPtr = std::unique_ptr<Reply, Freed<Reply>>;

}  // namespace

struct X11Clipboard::Impl {
    Impl(Listener& listener, xcb_connection_t* connection) : listener(listener), c(connection) {}
    ~Impl();

    bool setUp(xcb_window_t root);
    void run();
    void wakeUp() const;

    void handle(const xcb_generic_event_t* event);
    void ownerChanged(const xcb_xfixes_selection_notify_event_t* event);
    void serve(const xcb_selection_request_event_t* request);
    void propertyChanged(const xcb_property_notify_event_t* event);
    void answered(const xcb_selection_notify_event_t* event);
    void fetch(bool forText, xcb_atom_t target);
    void startFetch();
    void finishFetch(const std::optional<std::string>& bytes, xcb_atom_t type);
    std::optional<std::pair<std::string, xcb_atom_t>> takeProperty();
    void expire(Clock::time_point now);
    int waitMilliseconds(Clock::time_point now) const;

    Listener& listener;
    xcb_connection_t* c;
    xcb_window_t window = 0;
    std::uint8_t xfixesEvent = 0;
    std::size_t piece = largestPiece;
    struct {
        xcb_atom_t clipboard, targets, utf8, text, plainUtf8, incr, property;
    } atom{};
    int wake = -1;
    std::thread thread;

    // Shared with the callers' threads.
    std::mutex lock;
    bool quit = false;
    std::optional<std::pair<std::string, const void*>> offered;  // the latest only
    bool readAsked = false;

    // The clipboard thread's own.
    std::shared_ptr<const std::string> owned;  // the text while this object owns the selection
    const void* origin = nullptr;
    struct Fetch {
        bool forText;
        xcb_atom_t target;
    };
    std::deque<Fetch> fetches;  // the front one is under way when `fetching`
    bool fetching = false;
    bool incoming = false;  // the front one comes in INCR pieces
    std::string received;
    Clock::time_point fetchDeadline;
    struct Transfer {
        xcb_window_t requestor;
        xcb_atom_t property, type;
        std::shared_ptr<const std::string> data;
        std::size_t offset;
        Clock::time_point deadline;
    };
    std::vector<Transfer> transfers;
};

std::unique_ptr<X11Clipboard> X11Clipboard::open(const std::string& display, Listener& listener) {
    int screen = 0;
    xcb_connection_t* c = xcb_connect(display.empty() ? nullptr : display.c_str(), &screen);
    if (xcb_connection_has_error(c)) {
        xcb_disconnect(c);
        logLine("the clipboard is not shared: the display " + display + " cannot be reached");
        return nullptr;
    }
    auto impl = std::make_unique<Impl>(listener, c);
    const xcb_query_extension_reply_t* xfixes = xcb_get_extension_data(c, &xcb_xfixes_id);
    if (!xfixes || !xfixes->present) {
        logLine("the clipboard is not shared: the display has no XFIXES");
        return nullptr;
    }
    impl->xfixesEvent = xfixes->first_event;
    xcb_screen_iterator_t roots = xcb_setup_roots_iterator(xcb_get_setup(c));
    for (; roots.rem && screen > 0; --screen) xcb_screen_next(&roots);
    if (!roots.rem || !impl->setUp(roots.data->root)) {
        logLine("the clipboard is not shared: the display refused its window");
        return nullptr;
    }
    impl->thread = std::thread([raw = impl.get()] { raw->run(); });
    return std::unique_ptr<X11Clipboard>(new X11Clipboard(std::move(impl)));
}

bool X11Clipboard::Impl::setUp(xcb_window_t root) {
    ReplyPtr<xcb_xfixes_query_version_reply_t> version(
        xcb_xfixes_query_version_reply(c, xcb_xfixes_query_version(c, 5, 0), nullptr));
    if (!version) return false;
    const char* names[] = {"CLIPBOARD", "TARGETS", "UTF8_STRING", "TEXT", "text/plain;charset=utf-8", "INCR",
                           "VELMORA_CLIPBOARD"};
    xcb_atom_t* slots[] = {&atom.clipboard, &atom.targets, &atom.utf8, &atom.text, &atom.plainUtf8, &atom.incr,
                           &atom.property};
    xcb_intern_atom_cookie_t cookies[std::size(names)];
    for (std::size_t i = 0; i < std::size(names); ++i)
        cookies[i] = xcb_intern_atom(c, 0, static_cast<std::uint16_t>(std::strlen(names[i])), names[i]);
    bool interned = true;
    for (std::size_t i = 0; i < std::size(names); ++i) {
        ReplyPtr<xcb_intern_atom_reply_t> reply(xcb_intern_atom_reply(c, cookies[i], nullptr));
        if (reply) *slots[i] = reply->atom;
        interned = interned && reply;
    }
    if (!interned) return false;
    // Above the request limit a property cannot be written in one piece.
    piece = std::min<std::size_t>(largestPiece, std::size_t{xcb_get_maximum_request_length(c)} * 4 - 64);

    window = xcb_generate_id(c);
    const std::uint32_t events = XCB_EVENT_MASK_PROPERTY_CHANGE;
    xcb_create_window(c, XCB_COPY_FROM_PARENT, window, root, 0, 0, 1, 1, 0, XCB_WINDOW_CLASS_INPUT_ONLY,
                      XCB_COPY_FROM_PARENT, XCB_CW_EVENT_MASK, &events);
    xcb_xfixes_select_selection_input(c, window, atom.clipboard,
                                      XCB_XFIXES_SELECTION_EVENT_MASK_SET_SELECTION_OWNER |
                                          XCB_XFIXES_SELECTION_EVENT_MASK_SELECTION_WINDOW_DESTROY |
                                          XCB_XFIXES_SELECTION_EVENT_MASK_SELECTION_CLIENT_CLOSE);
    wake = ::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    return wake >= 0 && xcb_flush(c) > 0;
}

X11Clipboard::Impl::~Impl() {
    if (thread.joinable()) {
        {
            std::lock_guard guard(lock);
            quit = true;
        }
        wakeUp();
        thread.join();
    }
    if (wake >= 0) ::close(wake);
    xcb_disconnect(c);
}

X11Clipboard::X11Clipboard(std::unique_ptr<Impl> impl) : impl_(std::move(impl)) {}
X11Clipboard::~X11Clipboard() = default;

void X11Clipboard::offer(std::string utf8, const void* origin) {
    {
        std::lock_guard guard(impl_->lock);
        impl_->offered.emplace(std::move(utf8), origin);
    }
    impl_->wakeUp();
}

void X11Clipboard::read() {
    {
        std::lock_guard guard(impl_->lock);
        impl_->readAsked = true;
    }
    impl_->wakeUp();
}

void X11Clipboard::Impl::wakeUp() const {
    const std::uint64_t one = 1;
    ssize_t ignored = ::write(wake, &one, sizeof one);
    (void)ignored;
}

void X11Clipboard::Impl::run() {
    // What the selection holds already is told as a change, so the listener starts out knowing.
    ReplyPtr<xcb_get_selection_owner_reply_t> owner(
        xcb_get_selection_owner_reply(c, xcb_get_selection_owner(c, atom.clipboard), nullptr));
    if (owner && owner->owner != XCB_NONE)
        fetch(false, atom.targets);
    else
        listener.clipboardChanged(false, nullptr);
    for (;;) {
        std::optional<std::pair<std::string, const void*>> offer;
        bool readNow = false;
        {
            std::lock_guard guard(lock);
            if (quit) break;
            offer.swap(offered);
            std::swap(readNow, readAsked);
        }
        if (offer) {
            owned = std::make_shared<const std::string>(std::move(offer->first));
            origin = offer->second;
            xcb_set_selection_owner(c, window, atom.clipboard, XCB_CURRENT_TIME);
        }
        if (readNow) {
            if (owned)
                listener.textRead(*owned);
            else if (std::none_of(fetches.begin(), fetches.end(), [](const Fetch& f) { return f.forText; }))
                fetch(true, atom.utf8);
        }
        expire(Clock::now());
        while (xcb_generic_event_t* event = xcb_poll_for_event(c)) {
            handle(event);
            std::free(event);
        }
        if (xcb_connection_has_error(c)) {
            logLine("the clipboard is no longer shared: the connection to the display broke");
            break;
        }
        xcb_flush(c);
        pollfd waits[2] = {{xcb_get_file_descriptor(c), POLLIN, 0}, {wake, POLLIN, 0}};
        if (::poll(waits, 2, waitMilliseconds(Clock::now())) > 0 && waits[1].revents) {
            std::uint64_t count = 0;
            ssize_t ignored = ::read(wake, &count, sizeof count);
            (void)ignored;
        }
    }
}

int X11Clipboard::Impl::waitMilliseconds(Clock::time_point now) const {
    // Nothing under way: sleep until the display or a caller has something.
    std::optional<Clock::time_point> next;
    if (fetching) next = fetchDeadline;
    for (const Transfer& transfer : transfers) next = std::min(next.value_or(transfer.deadline), transfer.deadline);
    if (!next) return -1;
    auto left = std::chrono::duration_cast<std::chrono::milliseconds>(*next - now).count();
    return static_cast<int>(std::clamp<long long>(left + 1, 0, 60000));
}

void X11Clipboard::Impl::expire(Clock::time_point now) {
    if (fetching && now >= fetchDeadline) finishFetch(std::nullopt, XCB_NONE);
    std::erase_if(transfers, [now](const Transfer& transfer) { return now >= transfer.deadline; });
}

void X11Clipboard::Impl::handle(const xcb_generic_event_t* event) {
    const std::uint8_t type = event->response_type & 0x7f;
    if (type == xfixesEvent + XCB_XFIXES_SELECTION_NOTIFY)
        ownerChanged(reinterpret_cast<const xcb_xfixes_selection_notify_event_t*>(event));
    else if (type == XCB_SELECTION_REQUEST)
        serve(reinterpret_cast<const xcb_selection_request_event_t*>(event));
    else if (type == XCB_SELECTION_NOTIFY)
        answered(reinterpret_cast<const xcb_selection_notify_event_t*>(event));
    else if (type == XCB_PROPERTY_NOTIFY)
        propertyChanged(reinterpret_cast<const xcb_property_notify_event_t*>(event));
    else if (type == XCB_SELECTION_CLEAR)
        owned.reset();  // pieces still being sent keep their own copy
    // Errors (type 0) concern requestors that went away; their transfers run out.
}

void X11Clipboard::Impl::ownerChanged(const xcb_xfixes_selection_notify_event_t* event) {
    if (event->selection != atom.clipboard) return;
    if (event->owner == window)
        listener.clipboardChanged(true, origin);
    else if (event->owner == XCB_NONE)
        listener.clipboardChanged(false, nullptr);
    else if (std::none_of(fetches.begin() + (fetching ? 1 : 0), fetches.end(), [](const Fetch& f) { return !f.forText; }))
        fetch(false, atom.targets);  // whether the new owner has text at all
}

void X11Clipboard::Impl::serve(const xcb_selection_request_event_t* request) {
    const xcb_atom_t property = request->property == XCB_NONE ? request->target : request->property;
    const xcb_atom_t target = request->target;
    bool given = false;
    if (owned && request->selection == atom.clipboard) {
        if (target == atom.targets) {
            const xcb_atom_t offered[] = {atom.targets, atom.utf8, atom.text, atom.plainUtf8, XCB_ATOM_STRING};
            xcb_change_property(c, XCB_PROP_MODE_REPLACE, request->requestor, property, XCB_ATOM_ATOM, 32,
                                std::size(offered), offered);
            given = true;
        } else if (target == atom.utf8 || target == atom.text || target == atom.plainUtf8 || target == XCB_ATOM_STRING) {
            auto data = target == XCB_ATOM_STRING ? std::make_shared<const std::string>(ClipboardText::toLatin1(*owned))
                                                  : owned;
            const xcb_atom_t type = target == atom.text ? atom.utf8 : target;
            if (data->size() <= piece) {
                xcb_change_property(c, XCB_PROP_MODE_REPLACE, request->requestor, property, type, 8,
                                    static_cast<std::uint32_t>(data->size()), data->data());
            } else {
                // ICCCM's INCR: the size first; each piece once the requestor has deleted the last.
                const std::uint32_t events = XCB_EVENT_MASK_PROPERTY_CHANGE;
                xcb_change_window_attributes(c, request->requestor, XCB_CW_EVENT_MASK, &events);
                const auto size = static_cast<std::uint32_t>(data->size());
                xcb_change_property(c, XCB_PROP_MODE_REPLACE, request->requestor, property, atom.incr, 32, 1, &size);
                std::erase_if(transfers, [&](const Transfer& t) {
                    return t.requestor == request->requestor && t.property == property;
                });
                transfers.push_back({request->requestor, property, type, data, 0, Clock::now() + requestorTime});
            }
            given = true;
        }
    }
    xcb_selection_notify_event_t notify{};
    notify.response_type = XCB_SELECTION_NOTIFY;
    notify.time = request->time;
    notify.requestor = request->requestor;
    notify.selection = request->selection;
    notify.target = target;
    notify.property = given ? property : XCB_NONE;
    char wire[32] = {};  // every event on the wire is 32 bytes, more than this structure
    std::memcpy(wire, &notify, sizeof notify);
    xcb_send_event(c, 0, request->requestor, XCB_EVENT_MASK_NO_EVENT, wire);
}

void X11Clipboard::Impl::propertyChanged(const xcb_property_notify_event_t* event) {
    if (event->window == window) {
        if (!(fetching && incoming && event->atom == atom.property && event->state == XCB_PROPERTY_NEW_VALUE)) return;
        auto piece = takeProperty();
        if (!piece)
            finishFetch(std::nullopt, XCB_NONE);
        else if (piece->first.empty())
            finishFetch(received, piece->second);
        else {
            received += piece->first;
            fetchDeadline = Clock::now() + answerTime;
        }
        return;
    }
    if (event->state != XCB_PROPERTY_DELETE) return;
    auto found = std::find_if(transfers.begin(), transfers.end(), [event](const Transfer& t) {
        return t.requestor == event->window && t.property == event->atom;
    });
    if (found == transfers.end()) return;
    const std::size_t size = std::min(piece, found->data->size() - found->offset);
    xcb_change_property(c, XCB_PROP_MODE_REPLACE, found->requestor, found->property, found->type, 8,
                        static_cast<std::uint32_t>(size), found->data->data() + found->offset);
    found->offset += size;
    found->deadline = Clock::now() + requestorTime;
    if (size > 0) return;  // the empty piece ends it
    const xcb_window_t requestor = found->requestor;
    transfers.erase(found);
    if (std::none_of(transfers.begin(), transfers.end(), [&](const Transfer& t) { return t.requestor == requestor; })) {
        const std::uint32_t none = XCB_EVENT_MASK_NO_EVENT;
        xcb_change_window_attributes(c, requestor, XCB_CW_EVENT_MASK, &none);
    }
}

void X11Clipboard::Impl::fetch(bool forText, xcb_atom_t target) {
    fetches.push_back({forText, target});
    startFetch();
}

void X11Clipboard::Impl::startFetch() {
    if (fetching || fetches.empty()) return;
    fetching = true;
    incoming = false;
    received.clear();
    fetchDeadline = Clock::now() + answerTime;
    xcb_delete_property(c, window, atom.property);
    xcb_convert_selection(c, window, atom.clipboard, fetches.front().target, atom.property, XCB_CURRENT_TIME);
}

void X11Clipboard::Impl::answered(const xcb_selection_notify_event_t* event) {
    if (!fetching || event->requestor != window || event->selection != atom.clipboard) return;
    if (event->property == XCB_NONE) return finishFetch(std::nullopt, XCB_NONE);
    auto value = takeProperty();
    if (value && value->second == atom.incr) {
        incoming = true;  // taking the property asked for the first piece
        fetchDeadline = Clock::now() + answerTime;
    } else if (value) {
        finishFetch(value->first, value->second);
    } else {
        finishFetch(std::nullopt, XCB_NONE);
    }
}

std::optional<std::pair<std::string, xcb_atom_t>> X11Clipboard::Impl::takeProperty() {
    ReplyPtr<xcb_get_property_reply_t> reply(xcb_get_property_reply(
        c, xcb_get_property(c, 1, window, atom.property, XCB_GET_PROPERTY_TYPE_ANY, 0, UINT32_MAX / 4), nullptr));
    if (!reply || reply->type == XCB_NONE) return std::nullopt;
    const auto* bytes = static_cast<const char*>(xcb_get_property_value(reply.get()));
    return std::make_pair(std::string(bytes, static_cast<std::size_t>(xcb_get_property_value_length(reply.get()))),
                          reply->type);
}

void X11Clipboard::Impl::finishFetch(const std::optional<std::string>& bytes, xcb_atom_t type) {
    if (!fetching) return;
    const Fetch done = fetches.front();
    fetches.pop_front();
    fetching = incoming = false;
    received.clear();
    if (!done.forText) {
        bool text = false;
        if (bytes && type == XCB_ATOM_ATOM)
            for (std::size_t i = 0; i + sizeof(xcb_atom_t) <= bytes->size(); i += sizeof(xcb_atom_t)) {
                xcb_atom_t offered = 0;
                std::memcpy(&offered, bytes->data() + i, sizeof offered);
                text = text || offered == atom.utf8 || offered == XCB_ATOM_STRING || offered == atom.plainUtf8;
            }
        listener.clipboardChanged(text, nullptr);
    } else if (done.target == atom.utf8 && !bytes) {
        fetches.push_front({true, XCB_ATOM_STRING});  // an older program may have Latin-1 only
    } else if (done.target == atom.utf8) {
        listener.textRead(ClipboardText::fromUtf8Text(*bytes));
    } else {
        listener.textRead(bytes ? std::optional(ClipboardText::fromLatin1(*bytes)) : std::nullopt);
    }
    startFetch();
}

}  // namespace velmora::ServerHelper
