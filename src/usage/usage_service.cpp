#include "usage/usage_service.h"

#include "core/files.h"
#include "platform/work_queue.h"
#include "netcheck/net_info.h"
#include "netcheck/service_url.h"
#include "settings/keys.h"
#include "settings/launch_plan.h"

namespace velmora {

std::shared_ptr<UsageService> UsageService::create(MainQueue& mainQueue, platform::DefaultsStore& store,
                                                   std::shared_ptr<UsagePing> ping, Options options) {
    return std::shared_ptr<UsageService>(new UsageService(mainQueue, store, std::move(ping), std::move(options)));
}

UsageService::UsageService(MainQueue& mainQueue, platform::DefaultsStore& store, std::shared_ptr<UsagePing> ping,
                           Options options)
    : mainQueue_(mainQueue), store_(store), ping_(std::move(ping)), options_(std::move(options)) {
    if (!options_.countClients) options_.countClients = [](std::int64_t port) { return NetInfo::connectedClients(port); };
    if (!options_.statsPath) options_.statsPath = [] { return statsPath(); };
    if (!options_.serverBase) options_.serverBase = [] { return serviceBaseURL(); };
}

bool UsageService::pingsAllowed() const {
    // A setting that could not be read is no consent: the registered default would say "on".
    return store_.storedValuesKnown() && store_.boolean(Key::usagePing);
}

void UsageService::usageTick(bool running) {
    if (!pingsAllowed()) return;
    const std::int64_t port = store_.integer(Key::port);
    std::weak_ptr<UsageService> weak = weak_from_this();
    ClientCounter count = options_.countClients;
    // The link, not the queue: a quit while the count runs must find nothing gone.
    platform::globalQueue().async([weak, count, mainQueue = mainQueue_.link(), port, running] {
        int clients = running ? count(port) : 0;
        mainQueue->post([weak, clients] {
            if (auto self = weak.lock()) self->counted(clients);
        });
    });
}

void UsageService::counted(int clients) {
    ++ticksCounted_;
    if (!ping_->tick(clients) || !pingsAllowed()) return;
    std::optional<ServerStats> stats;
    if (auto bytes = files::readWhole(options_.statsPath())) stats = ServerStats::fromJSON(*bytes);
    ping_->send(clients >= 1, options_.serverBase(), stats);
}

}  // namespace velmora
