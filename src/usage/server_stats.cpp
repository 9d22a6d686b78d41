#include "usage/server_stats.h"

#include <cmath>
#include <nlohmann/json.hpp>

namespace velmora {

namespace {

std::int64_t counter(const nlohmann::json& object, const char* key) {
    auto found = object.find(key);
    if (found == object.end() || !found->is_number()) return 0;
    if (found->is_number_integer() && !found->is_number_unsigned()) return found->get<std::int64_t>();
    if (found->is_number_unsigned()) {
        auto value = found->get<std::uint64_t>();
        return value > static_cast<std::uint64_t>(INT64_MAX) ? INT64_MAX : static_cast<std::int64_t>(value);
    }
    double value = std::trunc(found->get<double>());
    if (std::isnan(value)) return 0;
    // 2^63 is exactly representable; anything at or beyond it does not fit.
    if (value >= 9223372036854775808.0) return INT64_MAX;
    if (value <= -9223372036854775808.0) return INT64_MIN;
    return static_cast<std::int64_t>(value);
}

}  // namespace

std::optional<ServerStats> ServerStats::fromJSON(std::string_view json) {
    auto parsed = nlohmann::json::parse(json.begin(), json.end(), nullptr, /*allow_exceptions=*/false);
    if (parsed.is_discarded() || !parsed.is_object()) return std::nullopt;
    ServerStats stats;
    stats.sessions = counter(parsed, "sessions");
    stats.repaints = counter(parsed, "repaints");
    stats.resizes = counter(parsed, "resizes");
    stats.riskEvents = counter(parsed, "riskEvents");
    stats.stalls = counter(parsed, "stalls");
    auto clients = parsed.find("clients");
    if (clients != parsed.end() && clients->is_string()) stats.clients = clients->get<std::string>();
    return stats;
}

ServerStats ServerStats::since(const std::optional<ServerStats>& previous) const {
    bool grew = previous && sessions >= previous->sessions && repaints >= previous->repaints &&
                resizes >= previous->resizes && riskEvents >= previous->riskEvents && stalls >= previous->stalls;
    if (!grew) return *this;
    ServerStats increments = *this;
    // a >= b here, so only a negative b (a hand-edited file) can push the difference past the top.
    auto minus = [](std::int64_t a, std::int64_t b) {
        std::int64_t difference = 0;
        return __builtin_sub_overflow(a, b, &difference) ? INT64_MAX : difference;
    };
    increments.sessions = minus(sessions, previous->sessions);
    increments.repaints = minus(repaints, previous->repaints);
    increments.resizes = minus(resizes, previous->resizes);
    increments.riskEvents = minus(riskEvents, previous->riskEvents);
    increments.stalls = minus(stalls, previous->stalls);
    return increments;
}

}  // namespace velmora
