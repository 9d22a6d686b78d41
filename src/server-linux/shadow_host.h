#pragma once
// FreeRDP's shadow server (libfreerdp-shadow2) in this process, capturing the X display and
// sending input through Debian's X11 subsystem (libfreerdp-shadow-subsystem2), which a subsystem
// entry of ours wraps to add the client accounting, the connection limit and the logins.
// One per process: the library's callbacks carry no pointer back to us.

#include "server-linux/client_book.h"
#include "server-linux/server_options.h"

#include <optional>

namespace velmora::ServerHelper {

class ShadowHost {
public:
    // `login` is the Windows login for NLA (without it NLA stays off); the host takes it and
    // zeroes the caller's copy of the hash.
    ShadowHost(const ServerOptions& options, std::optional<Login>& login, ClientBook& book);
    ~ShadowHost();
    ShadowHost(const ShadowHost&) = delete;
    ShadowHost& operator=(const ShadowHost&) = delete;

    // Makes (or reuses) the certificate, listens on the port and starts capturing; false, with
    // the reason logged, when it cannot.
    bool start();
    // A descriptor that becomes readable once the server's own thread has ended (-1 before start).
    int endedDescriptor() const;
    // Disconnects every client (each leaves a log line) and stops listening and capturing.
    void stop();

    // For the library's callbacks.
    struct State;

private:
    State* state_;
};

}  // namespace velmora::ServerHelper
