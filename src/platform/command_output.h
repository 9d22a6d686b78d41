#pragma once
// Runs a small system tool to its end and collects what it prints: standard input from /dev/null,
// standard error to /dev/null, no other inherited descriptors, every signal at its default, this
// process's environment. No shell is involved.

#include <optional>
#include <string>
#include <vector>

namespace velmora::platform {

// The tool's standard output, or absent when it could not be started. The exit status is not
// looked at.
std::optional<std::string> commandOutput(const std::string& program, const std::vector<std::string>& arguments);

}  // namespace velmora::platform
