#include "usage/usage_ping.h"

#include "core/text.h"
#include "platform/work_queue.h"
#include "netcheck/http.h"
#include "platform/system_info.h"

#include <algorithm>
#include <nlohmann/json.hpp>
#include <openssl/sha.h>

namespace velmora {

std::string usageMachineIdentifier(const std::string& platformUUID) {
    std::string input = "velmora:" + platformUUID;
    unsigned char digest[SHA256_DIGEST_LENGTH];
    SHA256(reinterpret_cast<const unsigned char*>(input.data()), input.size(), digest);
    return text::hex(digest, sizeof digest);
}

std::string usageMachineIdentifier() { return usageMachineIdentifier(platform::platformUUID()); }

std::shared_ptr<UsagePing> UsagePing::create(MainQueue& mainQueue, std::string machine, std::string appVersion) {
    return std::shared_ptr<UsagePing>(new UsagePing(mainQueue, std::move(machine), std::move(appVersion)));
}

UsagePing::UsagePing(MainQueue& mainQueue, std::string machine, std::string appVersion)
    : mainQueue_(mainQueue), machine_(std::move(machine)), appVersion_(std::move(appVersion)) {}

bool UsagePing::tick(std::int64_t clients) {
    if (clients >= 1) ++connectedMinutes_;
    ++minutesSinceSend_;
    return minutesSinceSend_ >= sendEveryMinutes;
}

std::map<std::string, std::string> UsagePing::body(bool active, const std::optional<ServerStats>& stats) const {
    std::map<std::string, std::string> fields{
        {"machine", machine_},
        {"version", appVersion_},
        {"os", platform::osVersionString()},
        {"active", active ? "1" : "0"},
        {"minutes", std::to_string(connectedMinutes_)},
    };
    if (stats) {
        ServerStats increments = stats->since(reportedStats_);
        fields["sessions"] = std::to_string(increments.sessions);
        fields["repaints"] = std::to_string(increments.repaints);
        fields["resizes"] = std::to_string(increments.resizes);
        fields["risk"] = std::to_string(increments.riskEvents);
        fields["stalls"] = std::to_string(increments.stalls);
        fields["clients"] = increments.clients;
    }
    return fields;
}

void UsagePing::send(bool active, const std::string& serverBase, const std::optional<ServerStats>& stats) {
    Http::Request request;
    request.method = "POST";
    request.url = serverBase + "/v1/ping";
    if (!Http::validURL(request.url)) return;
    const std::int64_t sentMinutes = connectedMinutes_;
    request.headers = {"Content-Type: application/json"};
    request.timeoutSeconds = 15.0;
    nlohmann::json json(body(active, stats));
    // Text from the statistics file may hold invalid UTF-8: it is sent repaired, not refused.
    request.body = json.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
    ++inFlight_;
    std::weak_ptr<UsagePing> weak = weak_from_this();
    // The link, not the queue: a quit while the request is in flight must find nothing gone.
    platform::globalQueue().async([request = std::move(request), weak, mainQueue = mainQueue_.link(), sentMinutes, stats] {
        auto response = Http::perform(request);
        bool accepted = response && response->status <= 299;
        mainQueue->post([weak, accepted, sentMinutes, stats] {
            if (auto self = weak.lock()) self->completed(accepted, sentMinutes, stats);
        });
    });
}

void UsagePing::completed(bool accepted, std::int64_t sentMinutes, const std::optional<ServerStats>& sentStats) {
    --inFlight_;
    if (!accepted) return;
    // Minutes counted while the request was in flight stay for the next report.
    connectedMinutes_ = std::max<std::int64_t>(0, connectedMinutes_ - sentMinutes);
    minutesSinceSend_ = 0;
    if (sentStats) reportedStats_ = sentStats;
}

}  // namespace velmora
