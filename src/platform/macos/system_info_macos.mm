// Facts about this Mac. Objective-C++: the process information's version string is an
// autoreleased object; its own pool frees it at once, also when a caller has none (the command line).

#include "platform/system_info.h"

#import <Foundation/Foundation.h>

#include <CoreFoundation/CoreFoundation.h>
#include <IOKit/IOKitLib.h>
#include <sys/sysctl.h>
#include <cstring>
#include <vector>

namespace velmora::platform {

namespace {

std::string fromCFString(CFStringRef value) {
    if (!value) return {};
    CFIndex length = CFStringGetLength(value);
    CFIndex size = CFStringGetMaximumSizeForEncoding(length, kCFStringEncodingUTF8) + 1;
    std::vector<char> buffer(static_cast<std::size_t>(size));
    if (!CFStringGetCString(value, buffer.data(), size, kCFStringEncodingUTF8)) return {};
    return buffer.data();
}

}  // namespace

std::string osVersionString() {
    @autoreleasepool {
        NSString* version = [[NSProcessInfo processInfo] operatingSystemVersionString];
        const char* text = version ? [version UTF8String] : nullptr;
        return text ? std::string(text) : std::string();
    }
}

std::string modelName() {
    std::size_t size = 0;
    if (::sysctlbyname("hw.model", nullptr, &size, nullptr, 0) != 0 || size == 0) return {};
    std::vector<char> buffer(size);
    if (::sysctlbyname("hw.model", buffer.data(), &size, nullptr, 0) != 0) return {};
    return std::string(buffer.data(), ::strnlen(buffer.data(), size));
}

std::string platformUUID() {
    // MACH_PORT_NULL asks for the default main port on every system version, old and new alike
    // (kIOMainPortDefault only exists from macOS 12, kIOMasterPortDefault is deprecated there).
    io_service_t expert = IOServiceGetMatchingService(MACH_PORT_NULL, IOServiceMatching("IOPlatformExpertDevice"));
    if (!expert) return "unknown";
    CFTypeRef value = IORegistryEntryCreateCFProperty(expert, CFSTR("IOPlatformUUID"), kCFAllocatorDefault, 0);
    IOObjectRelease(expert);
    std::string uuid;
    if (value && CFGetTypeID(value) == CFStringGetTypeID()) uuid = fromCFString(static_cast<CFStringRef>(value));
    if (value) CFRelease(value);
    return uuid.empty() ? "unknown" : uuid;
}

bool isPhysicalInterface(const std::string& name, const std::string&) { return name.rfind("en", 0) == 0; }

bool graphicalSessionAvailable() { return true; }

bool waylandSession() { return false; }

std::string connectionListerPath() { return "/usr/sbin/lsof"; }

}  // namespace velmora::platform
