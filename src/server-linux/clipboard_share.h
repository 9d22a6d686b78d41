#pragma once
// The clipboard shared with RDP clients: FreeRDP's clipboard channel (cliprdr), one per client that
// may interact, bridged to the X11 CLIPBOARD selection. Text only, as CF_UNICODETEXT.
//
// A client's copy is fetched whole before it replaces the local clipboard, so a client that goes
// mid-transfer leaves the clipboard as it was. It is asked for once the client's list of formats
// has stood for a moment: FreeRDP's X11 client first lists every format it knows, then asks its
// own desktop which it has and lists again, and a request in between spoils its answer. The local
// text is read only when a client pastes it; a client is only told that the local clipboard holds
// text. Whoever copied last wins: at connection the client's text replaces the local one, and a
// client with no text gets the local one.

#include "server-linux/x11_clipboard.h"

#include <condition_variable>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

struct rdp_shadow_client;
struct _cliprdr_server_context;

namespace velmora::ServerHelper {

class ClipboardShare final : private X11Clipboard::Listener {
public:
    // Null, with the reason logged, when the display's clipboard cannot be reached.
    static std::unique_ptr<ClipboardShare> start(const std::string& display);
    ~ClipboardShare();
    ClipboardShare(const ClipboardShare&) = delete;
    ClipboardShare& operator=(const ClipboardShare&) = delete;

    // On the client's thread, once it is let in: opens its clipboard channel if it asked for one
    // and may interact.
    void add(rdp_shadow_client* client);
    // On the client's thread as it goes (with the server's list of clients locked): closes it.
    void remove(rdp_shadow_client* client);

    struct Peer;
    struct Channel;  // the channel's callbacks

private:
    ClipboardShare() = default;
    void clipboardChanged(bool text, const void* origin) override;
    void textRead(const std::optional<std::string>& text) override;
    Peer* find(const _cliprdr_server_context* context);  // with lock_ held
    void askSettledLists();                               // the asker thread

    std::mutex lock_;  // never held while waiting for a channel's thread
    std::condition_variable listed_;
    bool quit_ = false;
    std::vector<std::unique_ptr<Peer>> peers_;
    bool localText_ = false;
    std::unique_ptr<X11Clipboard> x11_;
    std::thread asker_;
};

}  // namespace velmora::ServerHelper
