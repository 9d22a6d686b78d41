#pragma once
// The Windows login arrives in this process's environment (MAC_SHADOW_NLA). Read once, it leaves
// every place another process or a crash could find it.

#include <optional>
#include <string>

namespace velmora::ServerHelper {

// Makes this process non-dumpable first (no core file; /proc/<pid>/environ, mem and ptrace closed
// to other processes of the same user), then takes `name` out of the environment: the value is
// returned, the variable unset, and its bytes in the environment block the kernel shows as
// /proc/<pid>/environ overwritten with zeros. Absent when the variable is not set.
std::optional<std::string> takeSecretVariable(const char* name);

// Overwrites the text's bytes, so that freeing it leaves no copy behind.
void wipe(std::string& text);

}  // namespace velmora::ServerHelper
