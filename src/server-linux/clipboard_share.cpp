#include "server-linux/clipboard_share.h"

#include "server-linux/clipboard_text.h"
#include "server-linux/helper_log.h"

#include <freerdp/server/cliprdr.h>
#include <freerdp/server/shadow.h>

#include <algorithm>
#include <chrono>
#include <cstring>

namespace velmora::ServerHelper {

namespace {

using Clock = std::chrono::steady_clock;

// How long a client's list must stand before its text is asked for.
constexpr auto settleTime = std::chrono::milliseconds(250);
// How long a request for the client's text may stay unanswered before a newer one is sent.
constexpr auto unansweredTime = std::chrono::seconds(10);

}  // namespace

struct ClipboardShare::Peer {
    Peer(CliprdrServerContext* context, rdpShadowClient* client) : context(context), client(client) {}
    CliprdrServerContext* context;
    rdpShadowClient* client;
    bool listed = false;  // its first format list came: from now on either side may announce
    int waiting = 0;      // its requests for the local text not yet answered

    // The client's latest list, until it is acted on: its text format, and when it has stood long
    // enough. Its first list may name text the client does not have (FreeRDP's does).
    bool fresh = false;
    bool freshIsFirst = false;
    std::optional<UINT32> freshText;
    Clock::time_point settled;

    // One request for the client's text at a time: FreeRDP's client answers only one of two.
    bool asking = false;
    UINT32 askedFormat = 0;
    bool askedForFirst = false;
    Clock::time_point askedAt;

    // FreeRDP's shadow server lets a client be view-only; such a client never sees the clipboard.
    bool mayInteract() const { return client->mayInteract; }

    void ask(UINT32 format, bool first) {
        asking = true;
        askedFormat = format;
        askedForFirst = first;
        askedAt = Clock::now();
        CLIPRDR_FORMAT_DATA_REQUEST request{};
        request.msgType = CB_FORMAT_DATA_REQUEST;
        request.dataLen = 4;
        request.requestedFormatId = format;
        context->ServerFormatDataRequest(context, &request);
    }

    void announce(bool text) const {
        CLIPRDR_FORMAT unicode{CF_UNICODETEXT, nullptr};
        CLIPRDR_FORMAT_LIST list{};
        list.msgType = CB_FORMAT_LIST;
        list.numFormats = text ? 1 : 0;
        list.formats = text ? &unicode : nullptr;
        context->ServerFormatList(context, &list);
    }

    void answer(const std::optional<std::string>& unicodeText) const {
        static const BYTE nothing = 0;
        CLIPRDR_FORMAT_DATA_RESPONSE response{};
        response.msgType = CB_FORMAT_DATA_RESPONSE;
        response.msgFlags = unicodeText ? CB_RESPONSE_OK : CB_RESPONSE_FAIL;
        response.dataLen = unicodeText ? static_cast<UINT32>(unicodeText->size()) : 0;
        response.requestedFormatData = unicodeText ? reinterpret_cast<const BYTE*>(unicodeText->data()) : &nothing;
        context->ServerFormatDataResponse(context, &response);
    }
};

namespace {

// The client's text format: CF_UNICODETEXT, else UTF-8 under the X11 name some clients give it.
std::optional<UINT32> textFormat(const CLIPRDR_FORMAT_LIST* list) {
    std::optional<UINT32> utf8;
    for (UINT32 i = 0; i < list->numFormats; ++i) {
        const CLIPRDR_FORMAT& format = list->formats[i];
        if (format.formatId == CF_UNICODETEXT) return format.formatId;
        if (format.formatName && std::strcmp(format.formatName, "UTF8_STRING") == 0) utf8 = format.formatId;
    }
    return utf8;
}

ClipboardShare& shareOf(CliprdrServerContext* context) { return *static_cast<ClipboardShare*>(context->custom); }

}  // namespace

// Called on each client's channel thread.
struct ClipboardShare::Channel {
    static UINT formatList(CliprdrServerContext* context, const CLIPRDR_FORMAT_LIST* list) {
        CLIPRDR_FORMAT_LIST_RESPONSE received{};
        received.msgType = CB_FORMAT_LIST_RESPONSE;
        received.msgFlags = CB_RESPONSE_OK;
        context->ServerFormatListResponse(context, &received);
        ClipboardShare& share = shareOf(context);
        {
            std::lock_guard guard(share.lock_);
            Peer* peer = share.find(context);
            if (!peer || !peer->mayInteract()) return CHANNEL_RC_OK;
            peer->freshIsFirst = !peer->listed || (peer->fresh && peer->freshIsFirst);
            peer->listed = peer->fresh = true;
            peer->freshText = textFormat(list);
            peer->settled = Clock::now() + settleTime;
        }
        share.listed_.notify_all();
        return CHANNEL_RC_OK;
    }

    static UINT dataResponse(CliprdrServerContext* context, const CLIPRDR_FORMAT_DATA_RESPONSE* response) {
        ClipboardShare& share = shareOf(context);
        const bool given = (response->msgFlags & CB_RESPONSE_OK) && response->requestedFormatData;
        UINT32 format = 0;
        {
            std::lock_guard guard(share.lock_);
            Peer* peer = share.find(context);
            if (!peer || !peer->asking) return CHANNEL_RC_OK;
            peer->asking = false;
            format = peer->askedFormat;
            share.listed_.notify_all();  // a list that came meanwhile may be asked for now
            // An answer to a list the client has replaced since is of no use.
            if (peer->fresh || !peer->mayInteract()) return CHANNEL_RC_OK;
            if (!given && peer->askedForFirst && share.localText_) peer->announce(true);
            if (!given) return CHANNEL_RC_OK;
        }
        std::string_view bytes(reinterpret_cast<const char*>(response->requestedFormatData), response->dataLen);
        share.x11_->offer(format == CF_UNICODETEXT ? ClipboardText::fromUnicodeText(bytes)
                                                   : ClipboardText::fromUtf8Text(bytes),
                          context);
        return CHANNEL_RC_OK;
    }

    static UINT dataRequest(CliprdrServerContext* context, const CLIPRDR_FORMAT_DATA_REQUEST* request) {
        ClipboardShare& share = shareOf(context);
        {
            std::lock_guard guard(share.lock_);
            Peer* peer = share.find(context);
            if (!peer) return CHANNEL_RC_OK;
            if (!peer->mayInteract() || request->requestedFormatId != CF_UNICODETEXT) {
                peer->answer(std::nullopt);
                return CHANNEL_RC_OK;
            }
            ++peer->waiting;
        }
        share.x11_->read();
        return CHANNEL_RC_OK;
    }
};

std::unique_ptr<ClipboardShare> ClipboardShare::start(const std::string& display) {
    std::unique_ptr<ClipboardShare> share(new ClipboardShare());
    share->x11_ = X11Clipboard::open(display, *share);
    if (!share->x11_) return nullptr;
    share->asker_ = std::thread([raw = share.get()] { raw->askSettledLists(); });
    return share;
}

ClipboardShare::~ClipboardShare() {
    if (asker_.joinable()) {
        {
            std::lock_guard guard(lock_);
            quit_ = true;
        }
        listed_.notify_all();
        asker_.join();
    }
    x11_.reset();  // its thread calls this object
    for (auto& peer : peers_) {
        peer->context->Stop(peer->context);
        cliprdr_server_context_free(peer->context);
    }
}

// Sleeps until a client's list has stood long enough (without waking while there is none), then
// asks for its text, or, for a first list without text, offers the local text.
void ClipboardShare::askSettledLists() {
    std::unique_lock guard(lock_);
    while (!quit_) {
        const Clock::time_point now = Clock::now();
        std::optional<Clock::time_point> next;
        for (const auto& peer : peers_) {
            if (!peer->fresh) continue;
            Clock::time_point when = peer->asking ? std::max(peer->settled, peer->askedAt + unansweredTime) : peer->settled;
            if (now < when) {
                next = std::min(next.value_or(when), when);
                continue;
            }
            peer->fresh = false;
            if (peer->freshText)
                peer->ask(*peer->freshText, peer->freshIsFirst);
            else if (peer->freshIsFirst && localText_)
                peer->announce(true);
        }
        if (next)
            listed_.wait_until(guard, *next);
        else
            listed_.wait(guard);
    }
}

ClipboardShare::Peer* ClipboardShare::find(const CliprdrServerContext* context) {
    auto found = std::find_if(peers_.begin(), peers_.end(), [&](const auto& peer) { return peer->context == context; });
    return found == peers_.end() ? nullptr : found->get();
}

void ClipboardShare::add(rdpShadowClient* client) {
    if (!client->mayInteract || !WTSVirtualChannelManagerIsChannelJoined(client->vcm, CLIPRDR_SVC_CHANNEL_NAME))
        return;
    CliprdrServerContext* context = cliprdr_server_context_new(client->vcm);
    if (!context) return;
    context->custom = this;
    context->rdpcontext = &client->context;
    context->useLongFormatNames = TRUE;  // text only: no files, so no file streams or locks
    context->ClientFormatList = &Channel::formatList;
    context->ClientFormatDataResponse = &Channel::dataResponse;
    context->ClientFormatDataRequest = &Channel::dataRequest;
    {
        std::lock_guard guard(lock_);
        peers_.push_back(std::make_unique<Peer>(context, client));
    }
    if (context->Start(context) == CHANNEL_RC_OK) return;
    logLine("the clipboard channel could not be opened for a client");
    {
        std::lock_guard guard(lock_);
        std::erase_if(peers_, [&](const auto& peer) { return peer->context == context; });
    }
    cliprdr_server_context_free(context);
}

void ClipboardShare::remove(rdpShadowClient* client) {
    std::unique_ptr<Peer> gone;
    {
        std::lock_guard guard(lock_);
        auto found = std::find_if(peers_.begin(), peers_.end(), [&](const auto& peer) { return peer->client == client; });
        if (found == peers_.end()) return;
        gone = std::move(*found);
        peers_.erase(found);
    }
    // Its thread may be waiting for lock_ in a callback: it finds no peer and returns.
    gone->context->Stop(gone->context);
    cliprdr_server_context_free(gone->context);
}

void ClipboardShare::clipboardChanged(bool text, const void* origin) {
    std::lock_guard guard(lock_);
    localText_ = text;
    for (const auto& peer : peers_)
        if (peer->listed && peer->context != origin && peer->mayInteract()) peer->announce(text);
}

void ClipboardShare::textRead(const std::optional<std::string>& text) {
    const std::optional<std::string> unicodeText =
        text ? std::optional(ClipboardText::toUnicodeText(*text)) : std::nullopt;
    std::lock_guard guard(lock_);
    for (const auto& peer : peers_) {
        for (; peer->waiting > 0; --peer->waiting) peer->answer(peer->mayInteract() ? unicodeText : std::nullopt);
    }
}

}  // namespace velmora::ServerHelper
