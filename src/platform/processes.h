#pragma once
// The machine's processes, as far as this user may inspect them.

#include <optional>
#include <string>
#include <sys/types.h>
#include <vector>

namespace velmora::platform {

// Every process id of the machine (Linux: the numeric entries of /proc).
std::vector<pid_t> allProcessIds();

// The absolute executable path of `pid`, or empty when it cannot be read (another user's process,
// a process that has ended).
std::string executablePathOf(pid_t pid);

// The real user id of `pid` (who started it, whatever it may switch to); absent when unknown.
std::optional<uid_t> realUserOf(pid_t pid);

}  // namespace velmora::platform
