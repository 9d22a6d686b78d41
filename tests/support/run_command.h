#pragma once
// Runs a program to its end for a test: given arguments, environment changes and standard input;
// returns its exit status and both outputs.

#include <map>
#include <optional>
#include <string>
#include <vector>

namespace velmora::test {

struct CommandResult {
    int exitCode = -1;  // 128 + signal when it died of one
    std::string out;
    std::string err;
};

// `environment` changes: a value sets the variable, absent removes it; the rest is inherited.
CommandResult runCommand(const std::vector<std::string>& argv,
                         const std::map<std::string, std::optional<std::string>>& environment = {},
                         const std::string& input = {});

// This process's environment with `changes` applied, as NAME=VALUE strings for exec.
std::vector<std::string> environmentStrings(const std::map<std::string, std::optional<std::string>>& changes);

// Pointers into `strings`, ending in a null pointer, as exec wants them.
std::vector<char*> execVector(std::vector<std::string>& strings);

// The path of one of the built executables (bin/velmora, libexec/velmora/velmora-server).
std::string builtExecutable(const std::string& relative);

}  // namespace velmora::test
