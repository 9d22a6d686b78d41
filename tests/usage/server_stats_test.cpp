#include "usage/server_stats.h"

#include <gtest/gtest.h>

namespace velmora {
namespace {

ServerStats counters(std::int64_t a, std::int64_t b, std::int64_t c, std::int64_t d, std::int64_t e,
                     std::string clients = {}) {
    return ServerStats{a, b, c, d, e, std::move(clients)};
}

TEST(ServerStats, ReadsAnyObjectAndNothingElse) {
    EXPECT_EQ(ServerStats::fromJSON(R"({"sessions": 3})"), counters(3, 0, 0, 0, 0));
    EXPECT_EQ(ServerStats::fromJSON(
                  R"({"sessions":1,"repaints":2,"resizes":3,"riskEvents":4,"stalls":5,"clients":"mstsc 10.0","x":[1]})"),
              counters(1, 2, 3, 4, 5, "mstsc 10.0"));
    for (const char* absent : {"[1,2]", "7", "\"text\"", "null", "", "{", "{\"sessions\":}", "{} {}"})
        EXPECT_FALSE(ServerStats::fromJSON(absent).has_value()) << absent;
}

TEST(ServerStats, CountersAreIntegerValuesOfNumbersOnly) {
    EXPECT_EQ(ServerStats::fromJSON(R"({"sessions":3.9,"repaints":-2.5,"resizes":"5","riskEvents":true,"stalls":null})"),
              counters(3, -2, 0, 0, 0));
    EXPECT_EQ(ServerStats::fromJSON(R"({"sessions":1e30,"repaints":-1e30,"resizes":18446744073709551615,)"
                                    R"("riskEvents":9223372036854775807,"stalls":-9223372036854775808})"),
              counters(INT64_MAX, INT64_MIN, INT64_MAX, INT64_MAX, INT64_MIN));
    EXPECT_EQ(ServerStats::fromJSON(R"({"clients":42})")->clients, "");
}

TEST(ServerStats, SinceReportsIncrementsOrEverythingAfterARestart) {
    EXPECT_EQ(counters(10, 5, 0, 0, 1, "a").since(counters(4, 5, 0, 0, 0, "b")), counters(6, 0, 0, 0, 1, "a"));
    EXPECT_EQ(counters(2, 9, 9, 9, 9).since(counters(4, 0, 0, 0, 0)), counters(2, 9, 9, 9, 9));
    EXPECT_EQ(counters(7, 8, 9, 1, 2, "c").since(std::nullopt), counters(7, 8, 9, 1, 2, "c"));
    // A hand-edited file with negative counters cannot overflow the difference.
    EXPECT_EQ(counters(INT64_MAX, 0, 0, 0, 0).since(counters(-1, 0, 0, 0, 0)).sessions, INT64_MAX);
}

}  // namespace
}  // namespace velmora
