#include "platform/characters.h"

#include "core/text.h"

#include <CoreFoundation/CoreFoundation.h>
#include <algorithm>

namespace velmora::platform {

std::size_t characterCount(std::string_view text) {
    CFStringRef string = CFStringCreateWithBytes(kCFAllocatorDefault, reinterpret_cast<const UInt8*>(text.data()),
                                                 static_cast<CFIndex>(text.size()), kCFStringEncodingUTF8, false);
    if (!string) return text::utf32(text).size();  // not UTF-8: one scalar, one character
    CFIndex length = CFStringGetLength(string);
    std::size_t count = 0;
    for (CFIndex at = 0; at < length; ++count) {
        CFRange range = CFStringGetRangeOfComposedCharactersAtIndex(string, at);
        at = std::max(at + 1, range.location + range.length);
    }
    CFRelease(string);
    return count;
}

}  // namespace velmora::platform
