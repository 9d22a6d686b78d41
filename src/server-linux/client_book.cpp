#include "server-linux/client_book.h"

#include <nlohmann/json.hpp>


namespace velmora::ServerHelper {

namespace {

std::string who(const std::string& user) { return user.empty() ? "without a login" : "as " + user; }

}  // namespace

std::string statsJson(const StatsSnapshot& stats) {
    nlohmann::json object = {{"sessions", stats.sessions},     {"repaints", stats.repaints},
                             {"resizes", stats.resizes},       {"riskEvents", stats.riskEvents},
                             {"stalls", stats.stalls},         {"clients", stats.clients}};
    // A user name that is not valid UTF-8 never reaches this text, but a throw must not end the server.
    return object.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace) + "\n";
}

std::string durationText(std::chrono::seconds duration) {
    long long total = duration.count() < 0 ? 0 : duration.count();
    auto twoDigits = [](long long value) { return (value < 10 ? "0" : "") + std::to_string(value); };
    return std::to_string(total / 3600) + ":" + twoDigits(total / 60 % 60) + ":" + twoDigits(total % 60);
}

ClientBook::ClientBook(int maxConnections, std::function<void(const std::string&)> log, std::function<void()> changed)
    : maxConnections_(maxConnections), log_(std::move(log)), changed_(std::move(changed)) {}

void ClientBook::log(const std::string& line) const {
    if (log_) log_(line);
}

void ClientBook::loginAttempted(Id client, const std::string& address, const std::string& user) {
    std::lock_guard guard(lock_);
    Client& entry = clients_[client];
    entry.address = address;
    entry.user = user;
}

void ClientBook::loginRefused(Id client, const std::string& address, const std::string& user) {
    {
        std::lock_guard guard(lock_);
        Client& entry = clients_[client];
        entry.address = address;
        entry.user = user;
        entry.refusalLogged = true;
        ++counters_.riskEvents;
    }
    log("login refused for " + (user.empty() ? std::string("a client without a user name") : user) + " from " +
        address);
    if (changed_) changed_();
}

bool ClientBook::admit(Id client, const std::string& address, const std::string& user, const std::string& system,
                       Clock::time_point now) {
    bool admitted = false;
    int already = 0;
    {
        std::lock_guard guard(lock_);
        Client& entry = clients_[client];
        entry.address = address;
        entry.user = user;
        entry.system = system;
        already = admitted_;
        if (admitted_ < maxConnections_) {
            admitted = entry.admitted = true;
            entry.since = now;
            ++admitted_;
            ++counters_.sessions;
        } else {
            entry.refusalLogged = true;
            ++counters_.riskEvents;
        }
    }
    if (admitted)
        log("client connected from " + address + " " + who(user));
    else
        log("refused a client from " + address + ": " + std::to_string(already) + " of " +
            std::to_string(maxConnections_) + " allowed clients are connected");
    if (changed_) changed_();
    return admitted;
}

void ClientBook::frameSent(Id client, const char* codec) {
    {
        std::lock_guard guard(lock_);
        auto found = clients_.find(client);
        if (found != clients_.end()) found->second.codec = codec;
        ++counters_.repaints;
    }
    if (changed_) changed_();
}

void ClientBook::resized() {
    {
        std::lock_guard guard(lock_);
        ++counters_.resizes;
    }
    if (changed_) changed_();
}

void ClientBook::stalled(std::int64_t frames) {
    if (frames <= 0) return;
    {
        std::lock_guard guard(lock_);
        counters_.stalls += frames;
    }
    if (changed_) changed_();
}

void ClientBook::gone(Id client, bool loggedIn, Clock::time_point now) {
    std::string line;
    {
        std::lock_guard guard(lock_);
        auto found = clients_.find(client);
        if (found == clients_.end()) return;  // never named a user nor asked for the desktop
        const Client& entry = found->second;
        if (entry.admitted) {
            --admitted_;
            auto stayed = std::chrono::duration_cast<std::chrono::seconds>(now - entry.since);
            line = "client " + entry.address + " " + who(entry.user) + " disconnected after " + durationText(stayed);
        } else if (!loggedIn && !entry.refusalLogged) {
            // Over NLA a wrong password is only noticed inside FreeRDP: the client named a user
            // and never got past the security layer.
            ++counters_.riskEvents;
            line = "login refused for " + entry.user + " from " + entry.address;
        }
        clients_.erase(found);
    }
    if (!line.empty()) log(line);
    if (changed_) changed_();
}

int ClientBook::connected() const {
    std::lock_guard guard(lock_);
    return admitted_;
}

StatsSnapshot ClientBook::snapshot() const {
    std::lock_guard guard(lock_);
    StatsSnapshot stats = counters_;
    std::map<std::string, int> kinds;  // "Windows avc420" -> how many
    for (const auto& [id, client] : clients_)
        if (client.admitted) ++kinds[client.system + (client.codec.empty() ? "" : " " + client.codec)];
    for (const auto& [kind, count] : kinds) {
        if (!stats.clients.empty()) stats.clients += ", ";
        stats.clients += (count > 1 ? std::to_string(count) + " x " : "") + kind;
    }
    return stats;
}

}  // namespace velmora::ServerHelper
