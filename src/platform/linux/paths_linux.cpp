#include "platform/paths.h"

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <pwd.h>
#include <string>
#include <sys/stat.h>
#include <unistd.h>

namespace velmora::platform {

namespace {

// An XDG base folder: the variable when it holds an absolute path, else home + fallback.
std::string xdgFolder(const char* variable, const char* fallback) {
    const char* value = std::getenv(variable);
    if (value && value[0] == '/') return value;
    std::string home = homeDirectory();
    return home.empty() ? std::string() : home + fallback;
}

std::string parentOf(const std::string& path) {
    auto slash = path.rfind('/');
    if (slash == std::string::npos) return {};
    return slash == 0 ? "/" : path.substr(0, slash);
}

}  // namespace

std::string homeDirectory() {
    const char* home = std::getenv("HOME");
    if (home && home[0]) return home;
    struct passwd entry{};
    struct passwd* found = nullptr;
    char buffer[4096];
    if (getpwuid_r(::getuid(), &entry, buffer, sizeof buffer, &found) == 0 && found && found->pw_dir)
        return found->pw_dir;
    return {};
}

std::string logDirectory() {
    std::string state = xdgFolder("XDG_STATE_HOME", "/.local/state");
    return state.empty() ? std::string() : state + "/velmora";
}

std::string logFilePath() {
    std::string folder = logDirectory();
    return folder.empty() ? std::string() : folder + "/Velmora.log";
}

std::string statsDirectory() {
    std::string data = xdgFolder("XDG_DATA_HOME", "/.local/share");
    return data.empty() ? std::string() : data + "/velmora";
}

std::string defaultsLocation() {
    std::string config = xdgFolder("XDG_CONFIG_HOME", "/.config");
    return config.empty() ? std::string() : config + "/velmora/defaults.json";
}

std::string serverCertDirectory() {
    std::string config = xdgFolder("XDG_CONFIG_HOME", "/.config");
    return config.empty() ? std::string() : config + "/freerdp/shadow";
}

std::string executablePath() {
    char buffer[PATH_MAX];
    ssize_t n = ::readlink("/proc/self/exe", buffer, sizeof buffer - 1);
    if (n <= 0) return {};
    return std::string(buffer, static_cast<std::size_t>(n));
}

std::string bundleRoot() {
    return parentOf(parentOf(executablePath()));
}

std::string runtimeDirectory() {
    const char* runtime = std::getenv("XDG_RUNTIME_DIR");
    if (runtime && runtime[0] == '/') return std::string(runtime) + "/velmora";
    return "/tmp/velmora-" + std::to_string(::getuid());
}

std::string serverExecutableSuffix() { return "/libexec/velmora/velmora-server"; }

}  // namespace velmora::platform
