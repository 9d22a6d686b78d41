#include "platform/processes.h"

#include <libproc.h>

namespace velmora::platform {

std::vector<pid_t> allProcessIds() {
    int count = proc_listallpids(nullptr, 0);
    if (count < 1) return {};
    std::vector<pid_t> ids(static_cast<std::size_t>(count) + 64, 0);
    int listed = proc_listallpids(ids.data(), static_cast<int>(ids.size() * sizeof(pid_t)));
    if (listed < 0) listed = 0;
    if (static_cast<std::size_t>(listed) < ids.size()) ids.resize(static_cast<std::size_t>(listed));
    return ids;
}

std::string executablePathOf(pid_t pid) {
    char buffer[4096] = {};
    if (proc_pidpath(pid, buffer, sizeof buffer) < 1) return {};
    return std::string(buffer);
}

std::optional<uid_t> realUserOf(pid_t pid) {
    proc_bsdinfo info{};
    int size = proc_pidinfo(pid, PROC_PIDTBSDINFO, 0, &info, static_cast<int>(sizeof info));
    if (size != static_cast<int>(sizeof info)) return std::nullopt;
    return static_cast<uid_t>(info.pbi_ruid);
}

}  // namespace velmora::platform
