#pragma once
// The velmora command line: sub-commands that work without any window.

#include <optional>

namespace velmora {

// Runs the sub-command named in argv and returns its exit status, or absent when argv names no
// sub-command (the caller then starts the application).
std::optional<int> runCommandLine(int argc, char** argv);

}  // namespace velmora
