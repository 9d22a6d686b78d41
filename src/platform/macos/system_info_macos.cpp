#include "platform/login_item.h"
#include "platform/system_info.h"

#include <CoreFoundation/CoreFoundation.h>
#include <IOKit/IOKitLib.h>
#include <objc/message.h>
#include <objc/runtime.h>
#include <ServiceManagement/ServiceManagement.h>
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

// Sends a no-argument message that answers an object, through the Objective-C runtime.
id send(id receiver, const char* selector) {
    using Message = id (*)(id, SEL);
    return reinterpret_cast<Message>(objc_msgSend)(receiver, sel_registerName(selector));
}

}  // namespace

std::string osVersionString() {
    // [[NSProcessInfo processInfo] operatingSystemVersionString]
    id info = send(reinterpret_cast<id>(objc_getClass("NSProcessInfo")), "processInfo");
    id version = info ? send(info, "operatingSystemVersionString") : nullptr;
    return fromCFString(reinterpret_cast<CFStringRef>(version));
}

std::string modelName() {
    std::size_t size = 0;
    if (::sysctlbyname("hw.model", nullptr, &size, nullptr, 0) != 0 || size == 0) return {};
    std::vector<char> buffer(size);
    if (::sysctlbyname("hw.model", buffer.data(), &size, nullptr, 0) != 0) return {};
    return std::string(buffer.data(), ::strnlen(buffer.data(), size));
}

std::string platformUUID() {
    io_service_t expert = IOServiceGetMatchingService(kIOMainPortDefault, IOServiceMatching("IOPlatformExpertDevice"));
    if (!expert) return "unknown";
    CFTypeRef value = IORegistryEntryCreateCFProperty(expert, CFSTR("IOPlatformUUID"), kCFAllocatorDefault, 0);
    IOObjectRelease(expert);
    std::string uuid;
    if (value && CFGetTypeID(value) == CFStringGetTypeID()) uuid = fromCFString(static_cast<CFStringRef>(value));
    if (value) CFRelease(value);
    return uuid.empty() ? "unknown" : uuid;
}

bool isPhysicalInterface(const std::string& name, const std::string&) { return name.rfind("en", 0) == 0; }

std::string connectionListerPath() { return "/usr/sbin/lsof"; }

bool opensAtLogin() {
    // [SMAppService mainAppService].status == SMAppServiceStatusEnabled
    Class service = objc_getClass("SMAppService");
    if (!service) return false;
    id main = send(reinterpret_cast<id>(service), "mainAppService");
    if (!main) return false;
    using StatusMessage = long (*)(id, SEL);
    long status = reinterpret_cast<StatusMessage>(objc_msgSend)(main, sel_registerName("status"));
    return status == 1;  // SMAppServiceStatusEnabled
}

}  // namespace velmora::platform
