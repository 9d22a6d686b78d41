#pragma once
// What velmora-server makes of the contract it is started with: the probe mode and its answer, the
// Windows login entry, and the switches and MAC_SHADOW_* variables the in-process shadow server
// honours. Pure functions, so that the reading is tested without starting anything.

#include "core/environment.h"
#include "core/server_contract.h"

#include <array>
#include <optional>
#include <string>
#include <vector>

namespace velmora::ServerHelper {

// The probe mode named by MAC_SHADOW_PERMS ("check" or "request"); absent when the server is to run.
// Any other non-empty value is taken as a probe too: nothing on Linux asks the user for a grant,
// and answering beats starting a server nobody asked for.
std::optional<std::string> probeMode(const Environment& environment);

// The probe's one answer line, with its line feed.
std::string probeLine(bool screen, bool input);

// The line before the answer that names why a permission is missing ("cause=no-xtest :0\n"), or
// empty when nothing is missing. `cause` is one of Contract::Probe::Cause; `display` is left out
// when empty.
std::string causeLine(std::string_view cause, const std::string& display);

// The Windows login: the entry "user:<32 hex digits>" split at its last colon; absent when
// malformed (no colon, empty user, a colon or control character in the name, a name of spaces
// only, a hash that isn't 32 hex digits).
struct Login {
    std::string user;
    std::array<unsigned char, 16> ntHash{};
    bool operator==(const Login&) const = default;
};
std::optional<Login> parseLoginEntry(const std::string& entry);

// The settings the shadow server honours, from Velmora's arguments and environment.
struct ServerOptions {
    int port = 3389;
    bool authentication = false;  // "+auth": a TLS client logs in with a system account (PAM)
    bool nla = false;             // "+sec-nla": clients log in with the Windows login over NLA
    bool avc444 = false;          // "+gfx-avc444": H.264 4:4:4 offered to clients that can take it
    bool cursorInVideo = false;   // MAC_SHADOW_CURSOR=1 without "+server-side-cursor"
    int maxConnections = Contract::maxConnections;  // "/max-connections:N"
    int fps = 30;                 // MAC_SHADOW_FPS, 1 to 60
    bool adaptiveFps = true;      // MAC_SHADOW_ADAPTIVE_FPS: slow down for a client that falls behind
    int bitrateMbps = 10;         // MAC_SHADOW_BITRATE_MBPS, 1 to 100
    std::optional<std::string> statsFile;  // MAC_SHADOW_STATS_FILE
    bool watchParent = false;     // MAC_SHADOW_PARENT_WATCH=1
    bool clipboard = false;       // MAC_SHADOW_CLIPBOARD=1: text copied and pasted both ways
    bool audio = false;           // MAC_SHADOW_AUDIO=1: the desktop's sound sent to clients
    // Arguments this server does not know or whose value is unusable, in their order.
    std::vector<std::string> ignored;
};
ServerOptions parseOptions(const std::vector<std::string>& arguments, const Environment& environment);

}  // namespace velmora::ServerHelper
