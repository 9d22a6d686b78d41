#include "support/temp_home.h"

#include "platform/defaults_store.h"
#include "platform/paths.h"

#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>

namespace velmora::test {

TempHome::TempHome() {
    std::string pattern = (std::filesystem::temp_directory_path() / "velmora-test-XXXXXX").string();
    if (!::mkdtemp(pattern.data())) throw std::runtime_error("mkdtemp failed");
    root_ = pattern;
    // VELMORA_DEFAULTS_DOMAIN is read on macOS only, where the defaults live in a preferences domain
    // that HOME does not move: each temporary home gets a throwaway domain of its own there.
    const std::string domain = "com.velmora.tests." + std::filesystem::path(root_).filename().string();
    for (const auto& [name, value] : {std::pair<std::string, std::string>{"HOME", root_}, {"XDG_CONFIG_HOME", configHome()},
                                      {"XDG_STATE_HOME", stateHome()}, {"XDG_DATA_HOME", dataHome()},
                                      {"XDG_RUNTIME_DIR", runtimeDir()}, {"VELMORA_DEFAULTS_DOMAIN", domain}})
        environment_.emplace_back(name, value);
    // Noted now: what the environment names at the end may no longer be ours to throw away.
    defaults_ = platform::defaultsLocation();
}

TempHome::~TempHome() {
    platform::discardStoredDefaults(defaults_);
    std::error_code ignored;
    std::filesystem::remove_all(root_, ignored);
}

std::string readFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    std::ostringstream out;
    out << in.rdbuf();
    return out.str();
}

void writeFile(const std::string& path, const std::string& contents) {
    std::filesystem::create_directories(std::filesystem::path(path).parent_path());
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out << contents;
}

bool fileExists(const std::string& path) { return std::filesystem::exists(path); }

std::string writeScript(const std::string& path, const std::string& body) {
    writeFile(path, "#!/bin/sh\n" + body);
    std::filesystem::permissions(path, std::filesystem::perms::owner_all, std::filesystem::perm_options::add);
    return path;
}

}  // namespace velmora::test
