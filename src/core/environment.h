#pragma once
// Environments as handed to child processes: name to value, sorted by name.

#include <map>
#include <optional>
#include <string>

namespace velmora {

using Environment = std::map<std::string, std::string>;

// This process's whole environment.
Environment processEnvironment();

// One variable of this process's environment; absent when unset.
std::optional<std::string> environmentValue(const char* name);

}  // namespace velmora
