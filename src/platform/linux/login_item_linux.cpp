#include "platform/login_item.h"

#include "platform/paths.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <string_view>
#include <sys/stat.h>
#include <unistd.h>

namespace velmora::platform {

namespace {

std::string configHome() {
    const char* config = std::getenv("XDG_CONFIG_HOME");
    if (config && config[0] == '/') return config;
    std::string home = homeDirectory();
    return home.empty() ? std::string() : home + "/.config";
}

// One Exec argument, quoted as desktop entries want it: inside double quotes, the characters
// " ` $ and \ take a backslash; then the file format's own escape doubles every backslash.
std::string execArgument(std::string_view path) {
    std::string quoted = "\"";
    for (char c : path) {
        if (c == '"' || c == '`' || c == '$' || c == '\\') quoted += '\\';
        quoted += c;
    }
    quoted += '"';
    std::string escaped;
    for (char c : quoted) {
        if (c == '\\') escaped += '\\';
        escaped += c;
    }
    return escaped;
}

std::string describe(const std::string& what, const std::string& path, int error) {
    return what + " " + path + ": " + std::strerror(error);
}

std::optional<std::string> writeEntry(const std::string& path) {
    std::string program = executablePath();
    if (program.empty()) return std::string("The path of the running program is not known.");
    auto slash = path.rfind('/');
    std::string folder = path.substr(0, slash);
    if (!makeDirectories(folder)) return describe("Could not create", folder, errno);

    std::string temporary = path + ".tmp-" + std::to_string(::getpid());
    {
        std::ofstream out(temporary, std::ios::binary | std::ios::trunc);
        out << "[Desktop Entry]\n"
               "Type=Application\n"
               "Name=Velmora\n"
               "Comment=Let Windows Remote Desktop clients see and control this computer\n"
               "Exec=" << execArgument(program) << "\n"
               "Icon=velmora\n"
               "Terminal=false\n"
               "X-GNOME-Autostart-enabled=true\n";
        out.flush();
        if (!out) {
            int error = errno ? errno : EIO;
            std::remove(temporary.c_str());
            return describe("Could not write", temporary, error);
        }
    }
    if (std::rename(temporary.c_str(), path.c_str()) != 0) {
        int error = errno;
        std::remove(temporary.c_str());
        return describe("Could not write", path, error);
    }
    return std::nullopt;
}

}  // namespace

std::string loginItemPath() {
    std::string config = configHome();
    return config.empty() ? std::string() : config + "/autostart/velmora.desktop";
}

bool opensAtLogin() {
    std::string path = loginItemPath();
    if (path.empty()) return false;
    std::ifstream in(path, std::ios::binary);
    if (!in) return false;
    // A desktop that turns autostart entries off marks them hidden instead of removing them.
    std::string line;
    bool inEntry = false;
    while (std::getline(in, line)) {
        if (!line.empty() && line.back() == '\r') line.pop_back();
        if (!line.empty() && line.front() == '[') inEntry = line == "[Desktop Entry]";
        else if (inEntry && line.rfind("Hidden", 0) == 0) {
            auto equals = line.find('=');
            if (equals == std::string::npos) continue;
            std::string key = line.substr(0, equals), value = line.substr(equals + 1);
            while (!key.empty() && key.back() == ' ') key.pop_back();
            while (!value.empty() && value.front() == ' ') value.erase(0, 1);
            if (key == "Hidden" && value == "true") return false;
        }
    }
    return true;
}

std::optional<std::string> setOpensAtLogin(bool on) {
    std::string path = loginItemPath();
    if (path.empty()) return std::string("The home folder is not known.");
    if (on) return writeEntry(path);
    if (std::remove(path.c_str()) != 0 && errno != ENOENT) return describe("Could not remove", path, errno);
    return std::nullopt;
}

}  // namespace velmora::platform
