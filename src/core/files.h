#pragma once
// Reading small files whole.

#include <optional>
#include <string>

namespace velmora::files {

// The file's bytes, or absent when it cannot be opened or read.
std::optional<std::string> readWhole(const std::string& path);

}  // namespace velmora::files
