#include "platform/helper_location.h"

#include <CoreFoundation/CoreFoundation.h>
#include <CoreServices/CoreServices.h>
#include <sys/stat.h>

namespace velmora::platform {

std::optional<std::string> helperAppPath(const std::string& bundleRoot) {
    if (bundleRoot.empty()) return std::nullopt;
    std::string path = bundleRoot + "/Contents/Helpers/Velmora Server.app";
    struct stat info{};
    if (::stat(path.c_str(), &info) != 0) return std::nullopt;
    return path;
}

std::string helperExecutablePath(const std::string& helperApp) {
    return helperApp + "/Contents/MacOS/freerdp-shadow-cli";
}

std::optional<std::string> privacyResetTool() { return std::string("/usr/bin/tccutil"); }

int registerApplication(const std::string& appPath) {
    CFURLRef url = CFURLCreateFromFileSystemRepresentation(
        kCFAllocatorDefault, reinterpret_cast<const UInt8*>(appPath.data()), static_cast<CFIndex>(appPath.size()),
        true);
    if (!url) return -1;
    OSStatus status = LSRegisterURL(url, true);  // in-update: the helper may have just been replaced
    CFRelease(url);
    return static_cast<int>(status);
}

}  // namespace velmora::platform
