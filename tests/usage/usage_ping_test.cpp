#include "core/manual_queue.h"
#include "platform/work_queue.h"
#include "platform/defaults_store.h"
#include "platform/system_info.h"
#include "settings/keys.h"
#include "support/http_server.h"
#include "support/loopback.h"
#include "support/temp_home.h"
#include "usage/server_stats.h"
#include "usage/usage_ping.h"
#include "usage/usage_service.h"

#include <atomic>
#include <future>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

namespace velmora {
namespace {

using Body = std::map<std::string, std::string>;

ServerStats counters(std::int64_t a, std::int64_t b, std::int64_t c, std::int64_t d, std::int64_t e,
                     std::string clients = {}) {
    return ServerStats{a, b, c, d, e, std::move(clients)};
}

// A whole file, and the increments between two, are read in the minute tick's tests below.
TEST(ServerStats, ReadsSaturatedIntegersOfAnObjectAndAfterARestartCountsEverything) {
    for (const char* absent : {"[1,2]", "7", "\"text\"", "null", "", "{", "{\"sessions\":}", "{} {}"})
        EXPECT_FALSE(ServerStats::fromJSON(absent).has_value()) << absent;
    EXPECT_EQ(ServerStats::fromJSON(R"({"sessions":3.9,"repaints":-2.5,"resizes":"5","riskEvents":true,"clients":42})"),
              counters(3, -2, 0, 0, 0));
    EXPECT_EQ(ServerStats::fromJSON(R"({"sessions":1e30,"repaints":-1e30,"resizes":18446744073709551615,)"
                                    R"("riskEvents":9223372036854775807,"stalls":-9223372036854775808})"),
              counters(INT64_MAX, INT64_MIN, INT64_MAX, INT64_MAX, INT64_MIN));
    EXPECT_EQ(counters(2, 9, 9, 9, 9).since(counters(4, 0, 0, 0, 0)), counters(2, 9, 9, 9, 9));
    // A hand-edited file with negative counters cannot overflow the difference.
    EXPECT_EQ(counters(INT64_MAX, 0, 0, 0, 0).since(counters(-1, 0, 0, 0, 0)).sessions, INT64_MAX);
}

TEST(UsageMachineIdentifier, IsTheHashOfThePrefixedPlatformUUID) {
    EXPECT_EQ(usageMachineIdentifier("unknown"), "4274fb67b82e392a2151b5c0798304ed03d8e06c667a2d4c334bca4b1c041515");
}

TEST(UsagePing, AnAcceptedReportKeepsTheMinutesCountedWhileItWasInFlight) {
    test::HttpServer service;
    ManualQueue queue;
    auto ping = UsagePing::create(queue, "m", "1.0");
    for (int i = 0; i < 5; ++i) ping->tick(1);

    ping->send(true, "not a url", std::nullopt);  // nothing is sent, nothing changes
    EXPECT_EQ(ping->requestsInFlight(), 0);

    ServerStats reading{9, 8, 7, 6, 5, "mstsc"};
    ping->send(true, service.baseURL(), reading);
    ASSERT_TRUE(service.waitForRequests(1));
    ping->tick(1);  // a minute passes before the answer is handled on the main queue
    ASSERT_TRUE(queue.runUntil([&] { return ping->requestsInFlight() == 0; }));
    EXPECT_EQ(ping->connectedMinutes(), 1);
    EXPECT_EQ(ping->reportedStats(), reading);  // the whole reading, not the increments sent
}

// The application's minute tick against a real loopback service, a real statistics file and, for
// connected clients, a real listening socket with a real client that the connection lister sees.
class UsageTicks : public ::testing::Test {
protected:
    test::TempHome home;
    test::HttpServer service;
    test::LoopbackListener server;
    ManualQueue queue;
    platform::DefaultsStore store{home.configHome() + "/velmora/defaults.json"};
    bool running = false;
    std::string stats = home.dataHome() + "/velmora/server-stats.json";
    std::shared_ptr<UsagePing> ping = UsagePing::create(queue, "machine-id", "3.1");
    std::shared_ptr<UsageService> usage;

    void SetUp() override {
        store.set(Key::usagePing, true);
        store.set(Key::port, static_cast<std::int64_t>(server.port()));
        usage = UsageService::create(queue, store, ping,
                                     {.countClients = {},
                                      .statsPath = [this] { return stats; },
                                      .serverBase = [this] { return service.baseURL(); }});
    }

    // One minute's tick, with its background count and any report it sends seen through to the end.
    void minute() {
        std::uint64_t before = usage->ticksCounted();
        bool on = store.boolean(Key::usagePing);
        usage->usageTick(running);
        ASSERT_TRUE(!on || queue.runUntil([&] { return usage->ticksCounted() == before + 1; }));
        ASSERT_TRUE(queue.runUntil([&] { return ping->requestsInFlight() == 0; }));
    }

    Body report(std::size_t index) {
        auto requests = service.requests();
        return index < requests.size() ? nlohmann::json::parse(requests[index].body).get<Body>() : Body{};
    }
};

TEST_F(UsageTicks, ARejectedReportIsRetriedNextMinuteAndNothingIsCountedWhileStoppedOrOff) {
    running = true;
    server.connectClient();
    service.answer(500);
    for (int i = 0; i < 5; ++i) minute();
    ASSERT_EQ(service.requests().size(), 1u);
    EXPECT_EQ(report(0)["minutes"], "5");
    EXPECT_EQ(report(0)["active"], "1");

    service.answer(200);
    minute();
    ASSERT_EQ(service.requests().size(), 2u);
    EXPECT_EQ(report(1)["minutes"], "6");  // nothing changed on the rejection

    // The accepted report reset the minutes; with the server stopped no client is counted even
    // though the socket is still connected.
    running = false;
    for (int i = 0; i < 5; ++i) minute();
    ASSERT_EQ(service.requests().size(), 3u);
    EXPECT_EQ(report(2)["minutes"], "0");
    EXPECT_EQ(report(2)["active"], "0");

    // Switched off: no client count at all, and no report.
    running = true;
    store.set(Key::usagePing, false);
    const std::uint64_t counted = usage->ticksCounted();
    for (int i = 0; i < 10; ++i) minute();
    EXPECT_EQ(usage->ticksCounted(), counted);
    EXPECT_EQ(service.requests().size(), 3u);
}

TEST_F(UsageTicks, FirstReportAfterFiveMinutesThenIncrementsMovedOnlyByAnAcceptedReport) {
    test::writeFile(stats, R"({"sessions":3,"repaints":10,"resizes":1,"riskEvents":0,"stalls":2,"clients":"one"})");
    for (int i = 0; i < 4; ++i) minute();
    EXPECT_TRUE(service.requests().empty());
    minute();
    ASSERT_EQ(service.requests().size(), 1u);
    EXPECT_EQ(service.requests()[0].method + " " + service.requests()[0].path, "POST /v1/ping");
    EXPECT_NE(service.requests()[0].head.find("\r\ncontent-type: application/json\r\n"), std::string::npos);
    EXPECT_EQ(report(0), (Body{{"machine", "machine-id"}, {"version", "3.1"}, {"os", platform::osVersionString()},
                               {"active", "0"}, {"minutes", "0"}, {"sessions", "3"}, {"repaints", "10"},
                               {"resizes", "1"}, {"risk", "0"}, {"stalls", "2"}, {"clients", "one"}}));

    service.answer(503);
    test::writeFile(stats, R"({"sessions":5,"repaints":12,"resizes":1,"riskEvents":1,"stalls":2,"clients":"two"})");
    for (int i = 0; i < 5; ++i) minute();
    service.answer(200);
    minute();
    ASSERT_EQ(service.requests().size(), 3u);
    Body increments = report(0);
    for (auto [key, value] : {std::pair{"sessions", "2"}, {"repaints", "2"}, {"resizes", "0"}, {"risk", "1"}, {"stalls", "0"},
                              {"clients", "two"}})
        increments[key] = value;
    EXPECT_EQ(report(2), increments);

    // A malformed file sends no counters.
    test::writeFile(stats, "[not an object]");
    for (int i = 0; i < 5; ++i) minute();
    ASSERT_EQ(service.requests().size(), 4u);
    EXPECT_EQ(report(3).size(), 5u);
}

// Run under AddressSanitizer (asan preset): the background work below finishes after the queue,
// the service and the ping are gone, as when the application quits while lsof or a ping runs.
TEST(UsageShutdown, AQuitWithWorkInFlightTouchesNothingGone) {
    test::TempHome home;
    test::HttpServer service;
    platform::DefaultsStore store{home.configHome() + "/velmora/defaults.json"};
    store.set(Key::usagePing, true);
    auto queue = std::make_unique<ManualQueue>();
    std::promise<void> release;
    std::shared_future<void> released = release.get_future().share();
    std::atomic<bool> counting{false};

    auto lsof = [released, &counting](std::int64_t) {
        counting = true;
        released.wait();  // still running when the application quits
        return 1;
    };
    auto ping = UsagePing::create(*queue, "machine-id", "3.1");
    auto usage = UsageService::create(*queue, store, ping, {.countClients = lsof, .statsPath = {}, .serverBase = {}});
    usage->usageTick(true);
    ping->send(true, service.baseURL(), std::nullopt);
    std::shared_ptr<MainQueueLink> link = queue->link();

    // The quit: everything on the main thread goes.
    usage.reset();
    ping.reset();
    queue.reset();
    EXPECT_FALSE(link->isOpen());
    EXPECT_FALSE(link->post([] { ADD_FAILURE() << "ran on a closed queue"; }));
    release.set_value();
    platform::globalQueue().drain();
    EXPECT_TRUE(counting);
    EXPECT_TRUE(service.waitForRequests(1));
}

}  // namespace
}  // namespace velmora
