// Lister output of any shape: counting never crashes and never counts more lines than there are.
#include "netcheck/net_info.h"

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <string_view>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    std::string_view text(reinterpret_cast<const char*>(data), size);
    std::int64_t port = size ? data[0] * 257 : 3389;
    int count = velmora::NetInfo::countEstablished(text, port);
    if (count < 0 || static_cast<std::size_t>(count) > static_cast<std::size_t>(std::count(text.begin(), text.end(), '\n')) + 1)
        std::abort();
    return 0;
}
