#pragma once
// The velmora command line: sub-commands that work without any window.

#include <optional>

namespace velmora {

// Runs the sub-command named in argv (also --help and --version) and returns its exit status, or
// absent when argv is empty or just "--headless" (the caller then starts the application).
std::optional<int> runCommandLine(int argc, char** argv);

}  // namespace velmora
