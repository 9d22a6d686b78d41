#pragma once
// The server's running counters, as it writes them to its statistics file.

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace velmora {

struct ServerStats {
    std::int64_t sessions = 0;
    std::int64_t repaints = 0;
    std::int64_t resizes = 0;
    std::int64_t riskEvents = 0;
    std::int64_t stalls = 0;
    std::string clients;

    // Any JSON object reads (missing or non-number counters as 0, a non-text "clients" as empty);
    // anything else, or malformed JSON, is absent. Fractions are truncated; numbers beyond the
    // 64-bit range clamp to its ends.
    static std::optional<ServerStats> fromJSON(std::string_view json);

    // The increments since `previous`; the full counters when there is none or any counter went
    // down (the server restarted and began again from zero).
    ServerStats since(const std::optional<ServerStats>& previous) const;

    bool operator==(const ServerStats&) const = default;
};

}  // namespace velmora
