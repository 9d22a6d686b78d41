#include "server-linux/shadow_host.h"

#include "server-linux/clipboard_share.h"
#include "server-linux/cursor_overlay.h"
#include "server-linux/helper_log.h"
#include "server-linux/sound_capture.h"

#include <freerdp/peer.h>
#include <freerdp/server/rdpsnd.h>
#include <freerdp/server/shadow.h>
#include <winpr/interlocked.h>
#include <winpr/ntlm.h>
#include <winpr/string.h>
#include <winpr/sysinfo.h>

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <cstring>
#include <dlfcn.h>
#include <memory>
#include <mutex>
#include <sys/mman.h>
#include <vector>

// Debian's libfreerdp-shadow-subsystem2 exports it without declaring it in a header.
extern "C" int X11_ShadowSubsystemEntry(RDP_SHADOW_ENTRY_POINTS* pEntryPoints);

namespace velmora::ServerHelper {

// The callbacks below are installed in place of the library's own (whose originals, the same for
// every client, are kept here) and report to the book before or after calling them.
struct ShadowHost::State {
    State(const ServerOptions& options, const std::optional<Login>& login, ClientBook& book)
        : options(options), login(login), book(book) {}

    ServerOptions options;
    std::optional<Login> login;
    std::vector<WCHAR> upperUser;  // the login's name in UTF-16, upper-cased as Windows compares names
    ClientBook& book;

    rdpShadowServer* server = nullptr;
    bool initialized = false;
    bool started = false;
    RDP_SHADOW_ENTRY_POINTS x11{};
    pfnShadowAuthenticate systemLogin = nullptr;  // the X11 subsystem's PAM check for TLS clients
    psPeerAccepted acceptPeer = nullptr;
    std::atomic<int> peers{0};
    int adaptiveRate = 16;   // the adaptive capture rate, as the library starts it
    double framesLost = 0;   // frames not captured for a client behind, not yet counted

    std::mutex lock;  // guards the originals while clients connect on their own threads
    pSurfaceBits surfaceBits = nullptr;
    pSurfaceFrameBits surfaceFrameBits = nullptr;
    pBitmapUpdate bitmapUpdate = nullptr;
    pDesktopResize desktopResize = nullptr;
    psRdpgfxSurfaceFrameCommand gfxFrame = nullptr;
    psRdpgfxCapsConfirm capsConfirm = nullptr;
    psPeerActivate activate = nullptr;
    pPointerNew pointerNew = nullptr;
    pPointerCached pointerCached = nullptr;
    pPointerPosition pointerPosition = nullptr;

    // The pointer drawn into the video: only touched on the X11 subsystem's capture thread.
    std::unique_ptr<PointerSource> pointer;
    std::optional<PointerImage> pointerNow;    // as last queried
    std::optional<PointerImage> pointerShown;  // as last drawn into a frame
    PointerOverlay overlay;

    // The clipboard and the desktop's sound, when shared; both outlive every client.
    std::unique_ptr<ClipboardShare> clipboard;
    std::unique_ptr<SoundCapture> sound;
    psRdpsndServerInitialize soundInitialize = nullptr;
    psRdpsndServerActivated soundActivated = nullptr;
};

namespace {

ShadowHost::State* host = nullptr;

// While no client is there the X11 subsystem still looks at the screen size and the pointer at
// its capture rate; twice a second is enough for that, and a connecting client raises it.
constexpr int idleCaptureRate = 2;

// H.264 4:4:4 offered only when asked for; without it, a client that could take 4:4:4 gets 4:2:0.
const char* gfxCodec(const rdpSettings* settings) {
    return settings->GfxAVC444 || settings->GfxAVC444v2 ? "avc444" : "avc420";
}

std::string utf8(const WCHAR* text, std::size_t length) {
    if (!text || length == 0) return {};
    char* converted = nullptr;
    int size = ConvertFromUnicode(CP_UTF8, 0, text, static_cast<int>(length), &converted, 0, nullptr, nullptr);
    std::string result = size > 0 && converted ? std::string(converted, static_cast<std::size_t>(size)) : std::string();
    std::free(converted);
    return result;
}

// "DOMAIN\user", or the user alone when no domain was named.
std::string accountName(const std::string& domain, const std::string& user) {
    return domain.empty() ? user : domain + "\\" + user;
}

std::string accountName(const rdpSettings* settings) {
    return accountName(settings->Domain ? settings->Domain : "", settings->Username ? settings->Username : "");
}

const char* systemName(const rdpSettings* settings) {
    switch (settings->OsMajorType) {
        case OSMAJORTYPE_WINDOWS: return "Windows";
        case OSMAJORTYPE_MACINTOSH:
        case OSMAJORTYPE_OSX: return "macOS";
        case OSMAJORTYPE_UNIX: return "Unix";
        case OSMAJORTYPE_IOS: return "iOS";
        case OSMAJORTYPE_ANDROID: return "Android";
        case OSMAJORTYPE_CHROME_OS: return "ChromeOS";
        default: return "other";
    }
}

void setCaptureRate(int rate) {
    // The X11 subsystem reads it from its capture thread before every wait.
    if (host && host->server && host->server->subsystem) host->server->subsystem->captureFrameRate = rate;
}

// Keeps the library's function in `original` (once) and puts `ours` in its place.
template <typename Function>
void divert(Function& slot, Function& original, Function ours) {
    if (!slot || slot == ours) return;
    if (!original) original = slot;
    if (slot == original) slot = ours;
}

BOOL sendSurfaceBits(rdpContext* context, const SURFACE_BITS_COMMAND* command) {
    BOOL sent = host->surfaceBits(context, command);
    if (sent) host->book.frameSent(context, context->settings->RemoteFxCodec ? "remotefx" : "nscodec");
    return sent;
}

BOOL sendSurfaceFrameBits(rdpContext* context, const SURFACE_BITS_COMMAND* command, BOOL first, BOOL last,
                          UINT32 frameId) {
    BOOL sent = host->surfaceFrameBits(context, command, first, last, frameId);
    if (sent && last) host->book.frameSent(context, context->settings->RemoteFxCodec ? "remotefx" : "nscodec");
    return sent;
}

BOOL sendBitmapUpdate(rdpContext* context, const BITMAP_UPDATE* bitmap) {
    BOOL sent = host->bitmapUpdate(context, bitmap);
    if (sent) host->book.frameSent(context, "bitmap");
    return sent;
}

BOOL sendDesktopResize(rdpContext* context) {
    BOOL sent = host->desktopResize(context);
    if (sent) host->book.resized();
    return sent;
}

UINT sendGfxFrame(RdpgfxServerContext* gfx, const RDPGFX_SURFACE_COMMAND* command,
                  const RDPGFX_START_FRAME_PDU* start, const RDPGFX_END_FRAME_PDU* end) {
    UINT status = host->gfxFrame(gfx, command, start, end);
    if (status == CHANNEL_RC_OK) host->book.frameSent(gfx->rdpcontext, gfxCodec(gfx->rdpcontext->settings));
    return status;
}

// The library has just chosen the codecs from the client's capabilities, 4:4:4 whenever the
// client can take it; this is the last moment to take that back.
UINT confirmCaps(RdpgfxServerContext* gfx, const RDPGFX_CAPS_CONFIRM_PDU* confirm) {
    if (!host->options.avc444) {
        gfx->rdpcontext->settings->GfxAVC444 = FALSE;
        gfx->rdpcontext->settings->GfxAVC444v2 = FALSE;
    }
    return host->capsConfirm(gfx, confirm);
}

// NLA: WinPR asks for the NTLMv2 hash of the user the client named; it is made from the Windows
// login's NT hash, which never leaves this process's memory. A name that is not the login's
// (compared without case, as Windows does) gets no hash, and the login fails.
SECURITY_STATUS ntlmHash(void* peerPointer, const SEC_WINNT_AUTH_IDENTITY* identity, const SecBuffer*, const BYTE*,
                         const BYTE*, const SecBuffer*, BYTE* ntlmV2Hash) {
    auto* peer = static_cast<freerdp_peer*>(peerPointer);
    if (!host || !host->login || !peer || !identity) return 0;
    std::vector<WCHAR> user(identity->User, identity->User + identity->UserLength);
    std::vector<WCHAR> domain(identity->Domain, identity->Domain + identity->DomainLength);
    std::string name = accountName(utf8(domain.data(), domain.size()), utf8(user.data(), user.size()));
    CharUpperBuffW(user.data(), static_cast<DWORD>(user.size()));
    if (user != host->upperUser) {
        host->book.loginRefused(peer->context, peer->hostname, name);
        return 0;
    }
    host->book.loginAttempted(peer->context, peer->hostname, name);
    BOOL made = NTOWFv2FromHashW(host->login->ntHash.data(), user.data(), static_cast<UINT32>(user.size() * 2),
                                 domain.data(), static_cast<UINT32>(domain.size() * 2), ntlmV2Hash);
    // FreeRDP 2 takes any non-zero answer as success (its successor expects SEC_E_OK).
    return made ? 1 : 0;
}

// TLS with "+auth": the system account's password, checked by the X11 subsystem through PAM.
int authenticate(rdpShadowSubsystem* subsystem, rdpShadowClient* client, const char* user, const char* domain,
                 const char* password) {
    int status = host->systemLogin ? host->systemLogin(subsystem, client, user, domain, password) : -1;
    if (status < 0)
        host->book.loginRefused(client, client->context.peer->hostname,
                                accountName(domain ? domain : "", user ? user : ""));
    return status;
}

// With the pointer drawn into the video the client must not draw one of its own: its pointer is
// hidden whenever it (re)activates, and the shapes and moves the X11 subsystem sends are dropped.
BOOL activateWithoutPointer(freerdp_peer* peer) {
    BOOL activated = host->activate(peer);
    if (activated && peer->update->pointer->PointerSystem) {
        POINTER_SYSTEM_UPDATE hidden{SYSPTR_NULL};
        peer->update->pointer->PointerSystem(peer->context, &hidden);
    }
    return activated;
}
BOOL dropPointerNew(rdpContext*, const POINTER_NEW_UPDATE*) { return TRUE; }
BOOL dropPointerCached(rdpContext*, const POINTER_CACHED_UPDATE*) { return TRUE; }
BOOL dropPointerPosition(rdpContext*, const POINTER_POSITION_UPDATE*) { return TRUE; }

// The one format the desktop's sound goes out in, as it is recorded; every RDP client plays it.
AUDIO_FORMAT soundFormat{WAVE_FORMAT_PCM,
                         SoundCapture::channels,
                         SoundCapture::rate,
                         SoundCapture::rate * SoundCapture::channels * 2,
                         SoundCapture::channels * 2,
                         16,
                         0,
                         nullptr};

void freeSamples(UINT32, SHADOW_MSG_OUT* message) {
    auto* samples = reinterpret_cast<SHADOW_MSG_OUT_AUDIO_OUT_SAMPLES*>(message);
    std::free(samples->buf);
    delete samples;
}

// On the capture thread: the samples go to each client that listens, through its own queue, and
// its thread hands them to its audio channel.
void sendSound(const std::int16_t* samples, std::size_t frames) {
    if (frames == 0) return;
    auto* message = new SHADOW_MSG_OUT_AUDIO_OUT_SAMPLES{};
    message->common.Free = &freeSamples;
    message->common.refCount = 1;  // this function's, until every listener holds its own
    message->audio_format = &soundFormat;
    const std::size_t bytes = frames * SoundCapture::channels * sizeof(std::int16_t);
    message->buf = std::malloc(bytes);
    std::memcpy(message->buf, samples, bytes);
    message->nFrames = static_cast<int>(frames);
    message->wTimestamp = static_cast<UINT16>(GetTickCount());
    // A client leaves the list, and stops listening, only with the list locked.
    wArrayList* clients = host->server->clients;
    ArrayList_Lock(clients);
    for (int i = 0; i < ArrayList_Count(clients); ++i) {
        auto* client = static_cast<rdpShadowClient*>(ArrayList_GetItem(clients, i));
        if (host->sound->listens(client))
            shadow_client_post_msg(client, nullptr, SHADOW_MSG_OUT_AUDIO_OUT_SAMPLES_ID, &message->common, nullptr);
    }
    ArrayList_Unlock(clients);
    if (InterlockedDecrement(&message->common.refCount) <= 0)
        freeSamples(SHADOW_MSG_OUT_AUDIO_OUT_SAMPLES_ID, &message->common);
}

// The client's audio channel has chosen the format: from now on it listens.
void soundActivated(RdpsndServerContext* context) {
    host->soundActivated(context);
    if (context->selected_client_format < context->num_client_formats)
        host->sound->listen(context->data);
    else
        logLine("a client plays none of the sound formats offered; it gets no sound");
}

// The library opens a client's audio channel with the subsystem's formats, which it frees with the
// channel: each channel gets a copy of its own, and the choice of format is watched.
UINT initializeSound(RdpsndServerContext* context, BOOL ownThread) {
    AUDIO_FORMAT* formats = audio_formats_new(1);
    if (!formats || !audio_format_copy(&soundFormat, formats)) {
        audio_formats_free(formats, 1);
        return CHANNEL_RC_NO_MEMORY;
    }
    context->server_formats = formats;
    context->num_server_formats = 1;
    context->src_format = formats;
    psRdpsndServerInitialize initialize = nullptr;
    {
        std::lock_guard guard(host->lock);
        divert(context->Activated, host->soundActivated, &soundActivated);
        initialize = host->soundInitialize;
    }
    return initialize(context, ownThread);
}

// A client has logged in and asks for the desktop: the last moment to refuse it.
BOOL clientConnect(rdpShadowSubsystem* subsystem, rdpShadowClient* client) {
    rdpContext* context = &client->context;
    if (!host->book.admit(context, context->peer->hostname, accountName(context->settings),
                          systemName(context->settings)))
        return FALSE;
    {
        std::lock_guard guard(host->lock);
        rdpUpdate* update = context->update;
        divert(update->SurfaceBits, host->surfaceBits, &sendSurfaceBits);
        divert(update->SurfaceFrameBits, host->surfaceFrameBits, &sendSurfaceFrameBits);
        divert(update->BitmapUpdate, host->bitmapUpdate, &sendBitmapUpdate);
        divert(update->DesktopResize, host->desktopResize, &sendDesktopResize);
        if (client->rdpgfx) {
            divert(client->rdpgfx->SurfaceFrameCommand, host->gfxFrame, &sendGfxFrame);
            divert(client->rdpgfx->CapsConfirm, host->capsConfirm, &confirmCaps);
        }
        if (host->pointer) {
            divert(context->peer->Activate, host->activate, &activateWithoutPointer);
            divert(update->pointer->PointerNew, host->pointerNew, &dropPointerNew);
            divert(update->pointer->PointerCached, host->pointerCached, &dropPointerCached);
            divert(update->pointer->PointerPosition, host->pointerPosition, &dropPointerPosition);
        }
    }
    if (host->clipboard) host->clipboard->add(client);
    subsystem->captureFrameRate = host->options.fps;
    return TRUE;
}

rdpShadowSubsystem* newSubsystem() {
    rdpShadowSubsystem* subsystem = host->x11.New();
    if (!subsystem) return nullptr;
    host->systemLogin = subsystem->Authenticate;
    subsystem->Authenticate = &authenticate;
    subsystem->ClientConnect = &clientConnect;
    if (host->sound) {
        subsystem->rdpsndFormats = &soundFormat;
        subsystem->nRdpsndFormats = 1;
    }
    // FreeRDP 2.11 never calls ClientDisconnect (it waits for a flag nothing sets): a client's end
    // is seen where the server drops it from its list (clientRemoved).
    return subsystem;
}

int subsystemEntry(RDP_SHADOW_ENTRY_POINTS* entryPoints) {
    if (X11_ShadowSubsystemEntry(entryPoints) < 0) return -1;
    host->x11 = *entryPoints;
    entryPoints->New = &newSubsystem;
    return 1;
}

BOOL acceptPeer(freerdp_listener* listener, freerdp_peer* peer) {
    if (host->login) peer->ComputeNtlmHash = &ntlmHash;
    return host->acceptPeer(listener, peer);
}

// The server's list of clients holds every connection from its first packet to its end.
void* clientAdded(void* client) {
    if (host->peers++ == 0) setCaptureRate(host->options.fps);
    return client;
}

void clientRemoved(void* object) {
    auto* client = static_cast<rdpShadowClient*>(object);
    freerdp_peer* peer = client->context.peer;
    if (host->clipboard) host->clipboard->remove(client);
    if (host->sound) host->sound->forget(client);
    host->book.gone(&client->context, peer && peer->authenticated);
    if (--host->peers == 0) setCaptureRate(idleCaptureRate);
}

}  // namespace

ShadowHost::ShadowHost(const ServerOptions& options, std::optional<Login>& login, ClientBook& book)
    : state_(new State(options, login, book)) {
    host = state_;
    if (login) ::explicit_bzero(login->ntHash.data(), login->ntHash.size());
    if (state_->login) {
        // Kept out of swap, like any secret this process holds for long.
        ::mlock(state_->login->ntHash.data(), state_->login->ntHash.size());
        WCHAR* name = nullptr;
        int length = ConvertToUnicode(CP_UTF8, 0, state_->login->user.c_str(), -1, &name, 0);
        if (length > 1 && name) {
            state_->upperUser.assign(name, name + length - 1);
            CharUpperBuffW(state_->upperUser.data(), static_cast<DWORD>(state_->upperUser.size()));
        }
        std::free(name);
    }
}

ShadowHost::~ShadowHost() {
    stop();
    // Their threads call into the server, which goes next.
    state_->sound.reset();
    state_->clipboard.reset();
    if (state_->initialized) shadow_server_uninit(state_->server);
    if (state_->server) shadow_server_free(state_->server);
    if (state_->login) {
        ::explicit_bzero(state_->login->ntHash.data(), state_->login->ntHash.size());
        ::munlock(state_->login->ntHash.data(), state_->login->ntHash.size());
    }
    host = nullptr;
    delete state_;
}

bool ShadowHost::start() {
    State& state = *state_;
    if (state.options.audio) state.sound = std::make_unique<SoundCapture>(&sendSound);
    shadow_subsystem_set_entry(&subsystemEntry);
    state.server = shadow_server_new();
    if (!state.server) return false;
    rdpShadowServer* server = state.server;
    rdpSettings* settings = server->settings;
    // TLS always; NLA on top when asked for and there is a login to check clients against.
    freerdp_settings_set_bool(settings, FreeRDP_RdpSecurity, FALSE);
    freerdp_settings_set_bool(settings, FreeRDP_TlsSecurity, TRUE);
    freerdp_settings_set_bool(settings, FreeRDP_NlaSecurity, state.options.nla && state.login ? TRUE : FALSE);
    server->port = static_cast<DWORD>(state.options.port);
    server->authentication = state.options.authentication ? TRUE : FALSE;
    server->h264RateControlMode = H264_RATECONTROL_VBR;
    server->h264BitRate = static_cast<UINT32>(state.options.bitrateMbps) * 1000000u;
    server->h264FrameRate = static_cast<FLOAT>(state.options.fps);

    if (shadow_server_init(server) < 0) {
        logLine("could not start the shadow server (is the X display reachable?)");
        return false;
    }
    state.initialized = true;
    if (state.options.clipboard) {
        const char* display = std::getenv("DISPLAY");
        state.clipboard = ClipboardShare::start(display ? display : "");
    }
    ArrayList_Object(server->clients)->fnObjectNew = &clientAdded;
    ArrayList_Object(server->clients)->fnObjectFree = &clientRemoved;
    state.acceptPeer = server->listener->PeerAccepted;
    server->listener->PeerAccepted = &acceptPeer;

    if (shadow_server_start(server) < 0) {
        logLine("could not listen on port " + std::to_string(state.options.port) +
                " (is another program using it?)");
        return false;
    }
    state.started = true;
    setCaptureRate(idleCaptureRate);
    if (state.options.cursorInVideo) {
        const char* display = std::getenv("DISPLAY");
        state.pointer = PointerSource::open(display);
        if (!state.pointer) logLine("the pointer cannot be drawn into the video (no XFIXES); clients draw it");
    }
    return true;
}

int ShadowHost::endedDescriptor() const {
    return state_->started ? GetEventFileDescriptor(state_->server->thread) : -1;
}

void ShadowHost::stop() {
    if (!state_->started) return;
    state_->started = false;
    shadow_server_stop(state_->server);
}

}  // namespace velmora::ServerHelper

// The X11 subsystem asks the library, after every captured frame while one client is connected,
// how many frames a second that client can take, and captures at that rate; the library's answer
// ramps up to 32 whatever was configured. Defined here, this function takes the library's place
// (the executable's symbols come first), so that the configured rate holds. With the adaptive rate
// it backs off as the library does: down to a share of the rate while the client leaves frames
// unacknowledged, then up again by two frames a second per frame.
extern "C" int shadow_encoder_preferred_fps(rdpShadowEncoder* encoder) {
    using velmora::ServerHelper::host;
    if (!host) return 16;
    const int fps = host->options.fps;
    if (!host->options.adaptiveFps) return fps;
    // The frame just sent is always in flight; two more mean the client fell behind.
    const UINT32 inFlight = encoder ? shadow_encoder_inflight_frames(encoder) : 0;
    int& rate = host->adaptiveRate;  // only the capture thread calls this
    rate = inFlight > 2 ? std::max(1, fps / static_cast<int>(inFlight)) : std::min(fps, rate + 2);
    // The frames the configured rate would have captured until the next capture, less this one.
    host->framesLost += static_cast<double>(fps - rate) / rate;
    if (host->framesLost >= 1) {
        auto whole = static_cast<std::int64_t>(host->framesLost);
        host->framesLost -= static_cast<double>(whole);
        host->book.stalled(whole);
    }
    return rate;
}

// The pointer drawn into the video, around the X11 subsystem's capture (see cursor_overlay.h): the
// subsystem compares each capture with the library's copy of the screen through this function
// and, when they differ, copies the changes over and publishes a frame through the next one. Both
// are called on the capture thread; defined here, they take the library's place (found through
// RTLD_NEXT), and without the pointer in the video they only pass the call on.
extern "C" int shadow_capture_compare(BYTE* pData1, UINT32 nStep1, UINT32 nWidth, UINT32 nHeight, BYTE* pData2,
                                      UINT32 nStep2, RECTANGLE_16* rect) {
    using velmora::ServerHelper::host;
    using namespace velmora::ServerHelper;
    static const auto library =
        reinterpret_cast<decltype(&shadow_capture_compare)>(::dlsym(RTLD_NEXT, "shadow_capture_compare"));
    if (!host || !host->pointer || !host->server->surface || host->server->surface->data != pData1)
        return library(pData1, nStep1, nWidth, nHeight, pData2, nStep2, rect);
    // The copy as captured last time, without the pointer (the caller holds the surface's lock).
    PixelRect uncovered = host->overlay.restore(pData1, static_cast<int>(nStep1));
    int status = library(pData1, nStep1, nWidth, nHeight, pData2, nStep2, rect);
    host->pointerNow = host->pointer->query();
    bool moved = host->pointerNow.has_value() != host->pointerShown.has_value() ||
                 (host->pointerNow && !host->pointerNow->sameAs(*host->pointerShown));
    if (!moved) return status;
    PixelRect changed = status ? PixelRect{rect->left, rect->top, rect->right, rect->bottom} : PixelRect{};
    changed = unite(changed, uncovered);
    if (host->pointerShown) {
        const PointerImage& old = *host->pointerShown;
        changed = unite(changed, {old.left, old.top, old.left + old.width, old.top + old.height});
    }
    if (host->pointerNow) {
        const PointerImage& now = *host->pointerNow;
        changed = unite(changed, {now.left, now.top, now.left + now.width, now.top + now.height});
    }
    changed = {std::max(changed.left, 0), std::max(changed.top, 0), std::min(changed.right, static_cast<int>(nWidth)),
               std::min(changed.bottom, static_cast<int>(nHeight))};
    if (changed.empty()) return status;
    *rect = {static_cast<UINT16>(changed.left), static_cast<UINT16>(changed.top), static_cast<UINT16>(changed.right),
             static_cast<UINT16>(changed.bottom)};
    return 1;
}

// Called by the library as a client's channels come up, when the client asked for sound: without
// the desktop's sound shared there is no audio channel at all (the library would open one and send
// nothing). Defined here, it takes the library's place.
extern "C" RdpsndServerContext* rdpsnd_server_context_new(HANDLE vcm) {
    using namespace velmora::ServerHelper;
    static const auto library =
        reinterpret_cast<decltype(&rdpsnd_server_context_new)>(::dlsym(RTLD_NEXT, "rdpsnd_server_context_new"));
    if (!host || !host->sound) return nullptr;
    RdpsndServerContext* context = library(vcm);
    if (context) {
        std::lock_guard guard(host->lock);
        divert(context->Initialize, host->soundInitialize, &initializeSound);
    }
    return context;
}

extern "C" void shadow_subsystem_frame_update(rdpShadowSubsystem* subsystem) {
    using velmora::ServerHelper::host;
    static const auto library = reinterpret_cast<decltype(&shadow_subsystem_frame_update)>(
        ::dlsym(RTLD_NEXT, "shadow_subsystem_frame_update"));
    rdpShadowSurface* surface = host && host->pointer ? host->server->surface : nullptr;
    if (surface && subsystem == host->server->subsystem) {
        EnterCriticalSection(&surface->lock);
        host->overlay.restore(surface->data, surface->scanline);  // a refresh between two captures
        if (host->pointerNow) {
            auto drawn = host->overlay.draw(surface->data, surface->scanline, surface->width, surface->height,
                                            *host->pointerNow);
            if (!drawn.empty()) {
                RECTANGLE_16 area{static_cast<UINT16>(drawn.left), static_cast<UINT16>(drawn.top),
                                  static_cast<UINT16>(drawn.right), static_cast<UINT16>(drawn.bottom)};
                region16_union_rect(&surface->invalidRegion, &surface->invalidRegion, &area);
            }
        }
        host->pointerShown = host->pointerNow;
        LeaveCriticalSection(&surface->lock);
    }
    library(subsystem);
}
