#pragma once
// What velmora-server makes of the server contract it is started with: the probe mode, the login
// entry, and which of Velmora's arguments Debian's freerdp-shadow-cli understands. Pure functions,
// so that the translation is tested without starting anything.

#include "core/environment.h"

#include <optional>
#include <string>
#include <vector>

namespace velmora::ServerHelper {

// The shadow server this helper runs.
inline constexpr const char* shadowServerPath = "/usr/bin/freerdp-shadow-cli";

// The probe mode named by MAC_SHADOW_PERMS ("check" or "request"); absent when the server is to run.
// Any other non-empty value is taken as a probe too: nothing on Linux asks the user for a grant,
// and answering beats starting a server nobody asked for.
std::optional<std::string> probeMode(const Environment& environment);

// The probe's one answer line, with its line feed.
std::string probeLine(bool screen, bool input);

// MAC_SHADOW_PARENT_WATCH is exactly "1".
bool watchesParent(const Environment& environment);

// The login entry "user:<32 hex digits>" split at its last colon; absent when malformed (no
// colon, empty user, a control character or whitespace-only name, a hash that isn't 32 hex digits).
struct SamLogin {
    std::string user;
    std::string ntHashHex;  // lower case
    bool operator==(const SamLogin&) const = default;
};
std::optional<SamLogin> parseLoginEntry(const std::string& entry);

// One line of WinPR's NTLM SAM file: user, empty domain, empty LM hash, the NT hash, and the
// trailing empty fields ("user:::hash:::"). An empty domain matches whatever domain the client
// names.
std::string samLine(const SamLogin& login);

// The whole SAM file. WinPR looks user names up case-sensitively, while Windows users expect
// "Anna" and "anna" to be one account; so besides the name as stored there are lines for its
// lower-case, upper-case and capitalised spellings (ASCII letters only), each once.
std::string samFileText(const SamLogin& login);

// FreeRDP 2 cannot look up a user name with characters beyond ASCII: NLA can't work for it.
bool nlaCanMatch(const std::string& user);

// The shadow server's arguments for Velmora's. Kept: "/port:N" (N a port number), "+auth" /
// "-auth", "/sec:tls", and "+sec-nla" when `samFile` is given, which then adds "/sam-file:<path>".
// Everything else (options this server lacks: "/max-connections:", "±gfx-avc444",
// "+server-side-cursor", ...) is dropped and reported in `dropped`.
struct ShadowArguments {
    std::vector<std::string> arguments;
    std::vector<std::string> dropped;
};
ShadowArguments shadowArguments(const std::vector<std::string>& ours,
                                const std::optional<std::string>& samFile);

// Whether Velmora's arguments ask for NLA ("+sec-nla").
bool asksForNla(const std::vector<std::string>& ours);

// The shadow server's environment: ours without the MAC_SHADOW_* variables, which only this
// helper reads (MAC_SHADOW_NLA above all: the login never reaches the server's environment).
Environment shadowEnvironment(const Environment& ours);

// The exit code for a waitpid() status: the code itself, or 128 + the signal.
int exitCodeOf(int waitStatus);

}  // namespace velmora::ServerHelper
