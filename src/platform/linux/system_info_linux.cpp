#include "platform/system_info.h"

#include "core/text.h"

#include <cstdlib>
#include <fstream>
#include <sstream>
#include <string_view>
#include <sys/stat.h>
#include <sys/utsname.h>

namespace velmora::platform {

namespace {

std::string firstLineOf(const char* path) {
    std::ifstream in(path, std::ios::binary);
    std::string line;
    if (!in || !std::getline(in, line)) return {};
    return text::trimmed(text::repairedUtf8(line));
}

// The value of KEY=value in os-release, with its shell quoting removed.
std::string osReleaseValue(const std::string& key) {
    for (const char* path : {"/etc/os-release", "/usr/lib/os-release"}) {
        std::ifstream in(path, std::ios::binary);
        if (!in) continue;
        std::string line;
        while (std::getline(in, line)) {
            if (line.compare(0, key.size() + 1, key + "=") != 0) continue;
            std::string value = text::trimmed(line.substr(key.size() + 1));
            if (value.size() >= 2 && (value.front() == '"' || value.front() == '\'') && value.back() == value.front())
                value = value.substr(1, value.size() - 2);
            return text::repairedUtf8(value);
        }
        return {};
    }
    return {};
}

}  // namespace

std::string osVersionString() {
    std::string name = osReleaseValue("PRETTY_NAME");
    if (name.empty()) name = "Linux";
    struct utsname system{};
    if (::uname(&system) == 0) name += std::string(" (kernel ") + system.release + ")";
    return name;
}

std::string modelName() { return firstLineOf("/sys/class/dmi/id/product_name"); }

std::string platformUUID() {
    std::string id = firstLineOf("/etc/machine-id");
    return id.empty() ? "unknown" : id;
}

bool isPhysicalInterface(const std::string& name, const std::string& classNet) {
    if (name.empty() || name == "." || name == ".." || name.find('/') != std::string::npos) return false;
    struct stat info{};
    return ::stat((classNet + "/" + name + "/device").c_str(), &info) == 0;
}

bool graphicalSessionAvailable() {
    for (const char* name : {"DISPLAY", "WAYLAND_DISPLAY", "QT_QPA_PLATFORM"})
        if (const char* value = std::getenv(name); value && value[0]) return true;
    return false;
}

bool waylandSession() {
    const char* type = std::getenv("XDG_SESSION_TYPE");
    const char* display = std::getenv("WAYLAND_DISPLAY");
    return (type && std::string_view(type) == "wayland") || (display && display[0]);
}

std::string connectionListerPath() { return "/usr/bin/lsof"; }

}  // namespace velmora::platform
