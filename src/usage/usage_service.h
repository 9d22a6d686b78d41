#pragma once
// The application's minute tick for usage pings: every 60 seconds, while "usagePing" is on, count
// the clients connected to the server (in the background), tell the UsagePing, and when a report
// is due read the server's statistics file and send it.

#include "core/main_queue.h"
#include "platform/defaults_store.h"
#include "usage/usage_ping.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <string>

namespace velmora {

class UsageService : public std::enable_shared_from_this<UsageService> {
public:
    static constexpr double tickSeconds = 60.0;

    // Whether the supervised server process exists and runs; asked on the main thread.
    using ServerRunning = std::function<bool()>;
    // Connected clients on a port; called on the global queue (default: NetInfo::connectedClients).
    using ClientCounter = std::function<int(std::int64_t port)>;

    struct Options {
        ServerRunning serverRunning;
        ClientCounter countClients;               // empty: NetInfo::connectedClients
        std::function<std::string()> statsPath;   // empty: the launch plan's statsPath()
        std::function<std::string()> serverBase;  // empty: serviceBaseURL()
    };

    // The store and the queue must outlive the service; a tick still counting when the queue closes
    // posts nothing.
    static std::shared_ptr<UsageService> create(MainQueue& mainQueue, platform::DefaultsStore& store,
                                                std::shared_ptr<UsagePing> ping, Options options);

    // Schedules the repeating 60-second timer; `afterEachTick` (the status menu's refresh) runs
    // right after each usage tick, whether or not pings are on. Call on the main thread.
    void start(std::function<void()> afterEachTick = {});
    void stop();

    // One firing of the timer's usage half (usageTick).
    void usageTick();

    const std::shared_ptr<UsagePing>& ping() const { return ping_; }
    // Usage ticks whose client count came back and was handed to the ping (for tests and logs).
    std::uint64_t ticksCounted() const { return ticksCounted_; }

private:
    UsageService(MainQueue& mainQueue, platform::DefaultsStore& store, std::shared_ptr<UsagePing> ping,
                 Options options);
    void schedule();
    void counted(int clients);

    MainQueue& mainQueue_;
    platform::DefaultsStore& store_;
    std::shared_ptr<UsagePing> ping_;
    Options options_;
    std::function<void()> afterEachTick_;
    TimerHandle timer_;
    std::uint64_t ticksCounted_ = 0;
};

}  // namespace velmora
