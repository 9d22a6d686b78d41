#include "platform/paths.h"

#include <cerrno>
#include <sys/stat.h>

namespace velmora::platform {

bool makeDirectories(const std::string& path) {
    if (path.empty()) return false;
    struct stat info{};
    if (::stat(path.c_str(), &info) == 0) return S_ISDIR(info.st_mode);
    auto slash = path.rfind('/');
    if (slash != std::string::npos && slash > 0 && !makeDirectories(path.substr(0, slash))) return false;
    if (::mkdir(path.c_str(), 0700) != 0 && errno != EEXIST) return false;
    return ::stat(path.c_str(), &info) == 0 && S_ISDIR(info.st_mode);
}

}  // namespace velmora::platform
