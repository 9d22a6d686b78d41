#include "platform/processes.h"

#include <climits>
#include <cstdlib>
#include <dirent.h>
#include <fstream>
#include <sstream>
#include <unistd.h>

namespace velmora::platform {

std::vector<pid_t> allProcessIds() {
    std::vector<pid_t> ids;
    DIR* proc = ::opendir("/proc");
    if (!proc) return ids;
    while (dirent* entry = ::readdir(proc)) {
        char* end = nullptr;
        long value = std::strtol(entry->d_name, &end, 10);
        if (end != entry->d_name && *end == '\0' && value > 0) ids.push_back(static_cast<pid_t>(value));
    }
    ::closedir(proc);
    return ids;
}

std::string executablePathOf(pid_t pid) {
    char buffer[4096];
    std::string link = "/proc/" + std::to_string(pid) + "/exe";
    ssize_t n = ::readlink(link.c_str(), buffer, sizeof buffer);
    if (n <= 0 || n >= static_cast<ssize_t>(sizeof buffer)) {
        // A process that made itself non-dumpable (velmora-server, which holds the NT hash) hides
        // its exe link even from its own user; the path it was started by is still in cmdline.
        std::ifstream cmdline("/proc/" + std::to_string(pid) + "/cmdline");
        std::string first;
        std::getline(cmdline, first, '\0');
        return !first.empty() && first[0] == '/' ? first : std::string();
    }
    std::string path(buffer, static_cast<std::size_t>(n));
    // A replaced or deleted executable reads "<path> (deleted)"; the path is still the one it ran from.
    constexpr const char* deleted = " (deleted)";
    if (path.size() > 10 && path.compare(path.size() - 10, 10, deleted) == 0) path.resize(path.size() - 10);
    return path;
}

std::optional<uid_t> realUserOf(pid_t pid) {
    // "Uid:" then the real, effective, saved and file-system ids. The folder's owner would not do:
    // a process that made itself non-dumpable shows as root's there.
    std::ifstream status("/proc/" + std::to_string(pid) + "/status");
    std::string line;
    while (std::getline(status, line)) {
        if (line.rfind("Uid:", 0) != 0) continue;
        unsigned long uid = 0;
        std::istringstream fields(line.substr(4));
        if (fields >> uid) return static_cast<uid_t>(uid);
        return std::nullopt;
    }
    return std::nullopt;
}

}  // namespace velmora::platform
