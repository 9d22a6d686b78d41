#pragma once
// The X11 CLIPBOARD selection, on a thread of its own with its own connection to the display, so
// that a slow or stuck program on the desktop never holds up FreeRDP's threads. It speaks XCB: X
// errors on this connection (a requestor window gone mid-transfer) arrive as events here, never
// through Xlib's process-wide error handler, which the X11 subsystem switches while it captures.
//
// It owns the selection with text it is handed (answering TARGETS, UTF8_STRING, TEXT, STRING and
// text/plain;charset=utf-8, in INCR steps when large), reads the text of whichever program owns
// it, and watches the owner through XFIXES. Its listener is called on its thread.

#include <memory>
#include <optional>
#include <string>

namespace velmora::ServerHelper {

class X11Clipboard {
public:
    class Listener {
    public:
        // The selection has a new owner (none, another program, or this object); `text` says
        // whether it offers text. `origin` is what offer() was given when the owner is this object.
        virtual void clipboardChanged(bool text, const void* origin) = 0;
        // The answer to read(): the owner's text, or nothing when it gave none in time.
        virtual void textRead(const std::optional<std::string>& text) = 0;

    protected:
        ~Listener() = default;
    };

    // Null, with the reason logged, when the display cannot be reached or lacks XFIXES.
    static std::unique_ptr<X11Clipboard> open(const std::string& display, Listener& listener);
    ~X11Clipboard();  // ends the thread: the selection, if owned, goes with the connection
    X11Clipboard(const X11Clipboard&) = delete;
    X11Clipboard& operator=(const X11Clipboard&) = delete;

    // From any thread. Takes the selection with `utf8`.
    void offer(std::string utf8, const void* origin);
    // From any thread. Asks for the current owner's text; the listener gets it through textRead.
    void read();

    struct Impl;

private:
    explicit X11Clipboard(std::unique_ptr<Impl> impl);
    std::unique_ptr<Impl> impl_;
};

}  // namespace velmora::ServerHelper
