#pragma once
// The usage half of the application's minute tick: while "usagePing" is on (read from the user's
// settings, not guessed: see DefaultsStore::storedValuesKnown), count the clients connected to the
// server (in the background), tell the UsagePing, and when a report is due read the server's
// statistics file and send it.

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
    // Connected clients on a port; called on the global queue (default: NetInfo::connectedClients).
    using ClientCounter = std::function<int(std::int64_t port)>;

    struct Options {
        ClientCounter countClients;               // empty: NetInfo::connectedClients
        std::function<std::string()> statsPath;   // empty: the launch plan's statsPath()
        std::function<std::string()> serverBase;  // empty: serviceBaseURL()
    };

    // The store and the queue must outlive the service; a tick still counting when the queue closes
    // posts nothing.
    static std::shared_ptr<UsageService> create(MainQueue& mainQueue, platform::DefaultsStore& store,
                                                std::shared_ptr<UsagePing> ping, Options options);

    // One minute's usage tick; `serverRunning`: the supervised server process exists and runs.
    void usageTick(bool serverRunning);

    const std::shared_ptr<UsagePing>& ping() const { return ping_; }
    // Usage ticks whose client count came back and was handed to the ping (for tests and logs).
    std::uint64_t ticksCounted() const { return ticksCounted_; }

private:
    UsageService(MainQueue& mainQueue, platform::DefaultsStore& store, std::shared_ptr<UsagePing> ping,
                 Options options);
    void counted(int clients);
    // "usagePing" is on, read from the user's settings rather than guessed.
    bool pingsAllowed() const;

    MainQueue& mainQueue_;
    platform::DefaultsStore& store_;
    std::shared_ptr<UsagePing> ping_;
    Options options_;
    std::uint64_t ticksCounted_ = 0;
};

}  // namespace velmora
