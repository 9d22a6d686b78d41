#include "platform/certificate_name.h"

#include <CoreFoundation/CoreFoundation.h>
#include <Security/Security.h>

namespace velmora::platform {

std::optional<std::string> certificateSubjectName(const std::vector<unsigned char>& der) {
    CFDataRef data = CFDataCreate(kCFAllocatorDefault, der.data(), static_cast<CFIndex>(der.size()));
    if (!data) return std::nullopt;
    SecCertificateRef certificate = SecCertificateCreateWithData(kCFAllocatorDefault, data);
    CFRelease(data);
    if (!certificate) return std::nullopt;
    CFStringRef summary = SecCertificateCopySubjectSummary(certificate);
    CFRelease(certificate);
    if (!summary) return std::nullopt;
    std::optional<std::string> result;
    CFIndex length = CFStringGetLength(summary);
    CFIndex size = CFStringGetMaximumSizeForEncoding(length, kCFStringEncodingUTF8) + 1;
    std::string buffer(static_cast<std::size_t>(size), '\0');
    if (length > 0 && CFStringGetCString(summary, buffer.data(), size, kCFStringEncodingUTF8)) {
        buffer.resize(std::char_traits<char>::length(buffer.c_str()));
        if (!buffer.empty()) result = buffer;
    }
    CFRelease(summary);
    return result;
}

}  // namespace velmora::platform
