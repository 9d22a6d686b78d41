// Any response: an accepted address is four dotted numbers from 0 to 255 and reads back the same.
#include "netcheck/net_info.h"

#include <cstdint>
#include <cstdlib>
#include <string_view>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    std::string_view text(reinterpret_cast<const char*>(data), size);
    auto ip = velmora::NetInfo::parsePublicIP(text);
    if (!ip) return 0;
    int dots = 0;
    for (char c : *ip) {
        if (c == '.') ++dots;
        else if (c < '0' || c > '9') std::abort();
    }
    if (dots != 3 || velmora::NetInfo::parsePublicIP(*ip) != ip) std::abort();
    return 0;
}
