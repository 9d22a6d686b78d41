#include "platform/paths.h"

#include <mach-o/dyld.h>

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

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
    struct passwd* entry = getpwuid(getuid());
    return entry && entry->pw_dir ? entry->pw_dir : std::string();
}

std::string logDirectory() { return underHome("/Library/Logs"); }

std::string logFilePath() { return underHome("/Library/Logs/Velmora.log"); }

std::string statsDirectory() { return underHome("/Library/Application Support/Velmora"); }

std::string defaultsLocation() { return "com.velmora.app"; }

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
