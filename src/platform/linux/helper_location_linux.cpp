#include "platform/helper_location.h"

#include <sys/stat.h>

namespace velmora::platform {

std::optional<std::string> helperAppPath(const std::string& bundleRoot) {
    if (bundleRoot.empty()) return std::nullopt;
    std::string path = bundleRoot + "/libexec/velmora";
    struct stat info{};
    if (::stat(path.c_str(), &info) != 0) return std::nullopt;
    return path;
}

std::string helperExecutablePath(const std::string& helperApp) { return helperApp + "/velmora-server"; }

std::optional<std::string> privacyResetTool() { return std::nullopt; }

int registerApplication(const std::string&) { return 0; }

}  // namespace velmora::platform
