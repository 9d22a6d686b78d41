#pragma once
// The diagnostics report a user pastes into an e-mail: versions, settings, server state,
// permissions, addresses and the end of the application log with secrets removed.

#include "netcheck/net_info.h"
#include "settings/server_settings.h"

#include <cstdint>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace velmora::Diagnostics {

// A permission's name and whether it is granted.
using Permission = std::pair<std::string, bool>;

// How many log lines the report ends with.
inline constexpr std::int64_t logLines = 80;

// The status line's title right after copying; updateUI puts the normal one back 4 s later.
inline constexpr const char* copiedTitle = "Diagnostics copied. Paste them into your email.";
inline constexpr double copiedTitleSeconds = 4.0;

// The report; `log` may be the whole log or already its end: only the last 80 lines are used, and
// only they are redacted.
std::string build(const std::string& appVersion, const std::string& os, const std::string& model,
                  const ServerSettings& settings, bool running, const std::vector<Permission>& permissions,
                  const std::vector<NetInfo::Address>& addresses, std::string_view log);

// Replaces signed tokens, the server's login entry in an environment dump and 32-digit hexadecimal
// words (NT hashes) by "[removed]". Linear in the text's length.
std::string redact(std::string_view text);

// The last max(maxLines, 0) pieces of `text` split at line feeds (empty pieces kept), rejoined.
std::string tail(std::string_view text, std::int64_t maxLines);

// tail() of the file at `path` read as UTF-8 (invalid bytes repaired), reading only as much of the
// end of the file as those lines need; empty when the file cannot be read.
std::string fileTail(const std::string& path, std::int64_t maxLines);

// The two permission lines of the server's probe answer, in report order.
std::vector<Permission> permissionEntries(bool screen, bool input);

// The gathering half of "Copy Diagnostics": system facts, local addresses and the log's end are
// read here (blocking briefly); the caller supplies what the application knows. `permissions` is
// empty when the server could not be asked.
std::string gather(const std::string& appVersion, const ServerSettings& settings, bool running,
                   const std::vector<Permission>& permissions, const std::string& logPath);

}  // namespace velmora::Diagnostics
