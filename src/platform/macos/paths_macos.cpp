#include "platform/paths.h"

#include <mach-o/dyld.h>

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

namespace velmora::platform {

namespace {

std::string parentOf(const std::string& path) {
    auto slash = path.rfind('/');
    if (slash == std::string::npos) return {};
    return slash == 0 ? "/" : path.substr(0, slash);
}

std::string underHome(const char* relative) {
    std::string home = homeDirectory();
    return home.empty() ? std::string() : home + relative;
}

}  // namespace

std::string homeDirectory() {
    const char* home = std::getenv("HOME");
    if (home && home[0]) return home;
    // The re-entrant form: paths are asked for on worker threads too.
    long suggested = ::sysconf(_SC_GETPW_R_SIZE_MAX);
    std::vector<char> buffer(suggested > 0 ? static_cast<std::size_t>(suggested) : 4096);
    struct passwd record{};
    struct passwd* entry = nullptr;
    int error = 0;
    while ((error = ::getpwuid_r(::getuid(), &record, buffer.data(), buffer.size(), &entry)) == ERANGE &&
           buffer.size() < (1u << 20)) {
        buffer.resize(buffer.size() * 2);
    }
    return error == 0 && entry && entry->pw_dir ? std::string(entry->pw_dir) : std::string();
}

std::string logDirectory() { return underHome("/Library/Logs"); }

std::string logFilePath() { return underHome("/Library/Logs/Velmora.log"); }

std::string statsDirectory() { return underHome("/Library/Application Support/Velmora"); }

std::string defaultsLocation() {
    // Tests name a throwaway domain here: CFPreferences ignores HOME, so a temporary home alone
    // would still reach the user's real settings.
    const char* domain = std::getenv("VELMORA_DEFAULTS_DOMAIN");
    return domain && domain[0] ? std::string(domain) : std::string("com.velmora.app");
}

std::string serverCertDirectory() { return underHome("/.config/freerdp/shadow"); }

std::string executablePath() {
    char buffer[PATH_MAX];
    uint32_t size = sizeof buffer;
    if (_NSGetExecutablePath(buffer, &size) != 0) return {};
    char resolved[PATH_MAX];
    return realpath(buffer, resolved) ? std::string(resolved) : std::string(buffer);
}

std::string bundleRoot() {
    // .../Velmora.app/Contents/MacOS/Velmora -> .../Velmora.app
    return parentOf(parentOf(parentOf(executablePath())));
}

std::string serverExecutableSuffix() { return "/Velmora Server.app/Contents/MacOS/freerdp-shadow-cli"; }

std::string runtimeDirectory() {
    char folder[PATH_MAX];
    std::size_t n = ::confstr(_CS_DARWIN_USER_TEMP_DIR, folder, sizeof folder);
    if (n == 0 || n > sizeof folder) return "/tmp/velmora-" + std::to_string(::getuid());
    std::string path(folder);
    if (!path.empty() && path.back() != '/') path += '/';
    return path + "velmora";
}

}  // namespace velmora::platform
