// Any statistics file: reading never throws or crashes; a reading's difference with itself is zero.
#include "usage/server_stats.h"

#include <cstdint>
#include <cstdlib>
#include <string_view>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    auto stats = velmora::ServerStats::fromJSON(std::string_view(reinterpret_cast<const char*>(data), size));
    if (!stats) return 0;
    auto same = stats->since(*stats);
    if (same.sessions || same.repaints || same.resizes || same.riskEvents || same.stalls || same.clients != stats->clients)
        std::abort();
    return 0;
}
