#pragma once
// Usage pings: minutes with a connected client and the server's counters, reported every five
// minutes to the service while the user leaves "Send Usage Pings" on. A report the service does
// not accept is repeated a minute later with the minutes counted since.

#include "core/main_queue.h"
#include "usage/server_stats.h"

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>

namespace velmora {

// 64 lower-case hexadecimal digits: SHA-256 of "velmora:" + `platformUUID`.
std::string usageMachineIdentifier(const std::string& platformUUID);
// The same for this machine.
std::string usageMachineIdentifier();

class UsagePing : public std::enable_shared_from_this<UsagePing> {
public:
    static constexpr std::int64_t sendEveryMinutes = 5;

    // Owned through a shared_ptr: a request's completion holds the instance weakly. `mainQueue`
    // must outlive this instance; requests still in flight when it closes post nothing.
    static std::shared_ptr<UsagePing> create(MainQueue& mainQueue, std::string machine, std::string appVersion);

    // Counts one minute; true when a report is due.
    bool tick(std::int64_t clients);

    // The report: every value is text.
    std::map<std::string, std::string> body(bool active, const std::optional<ServerStats>& stats) const;

    // Posts the report to serverBase + "/v1/ping" on a background thread; an accepted answer
    // (status 299 or lower) updates the counters on the main queue. Call on the main thread.
    void send(bool active, const std::string& serverBase, const std::optional<ServerStats>& stats);

    const std::string& machine() const { return machine_; }
    const std::string& appVersion() const { return appVersion_; }
    std::int64_t connectedMinutes() const { return connectedMinutes_; }
    std::int64_t minutesSinceSend() const { return minutesSinceSend_; }
    const std::optional<ServerStats>& reportedStats() const { return reportedStats_; }
    // Requests sent whose completion has not yet been handled on the main queue.
    int requestsInFlight() const { return inFlight_; }

private:
    UsagePing(MainQueue& mainQueue, std::string machine, std::string appVersion);
    void completed(bool accepted, std::int64_t sentMinutes, const std::optional<ServerStats>& sentStats);

    MainQueue& mainQueue_;
    std::string machine_;
    std::string appVersion_;
    std::int64_t connectedMinutes_ = 0;
    std::int64_t minutesSinceSend_ = 0;
    std::optional<ServerStats> reportedStats_;
    int inFlight_ = 0;
};

}  // namespace velmora
