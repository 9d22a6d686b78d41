#pragma once
// The server's account of its clients: who is connected (and since when), the connection limit,
// the log line for every connect, leave and refusal, and the counters of the statistics file.
// It knows nothing of FreeRDP: the shadow server's callbacks report to it with an opaque client
// identity, from any thread.

#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <mutex>
#include <string>

namespace velmora::ServerHelper {

// The counters of the statistics file; they only grow while one server process lives.
struct StatsSnapshot {
    std::int64_t sessions = 0;    // connections let in
    std::int64_t repaints = 0;    // frames sent, summed over clients
    std::int64_t resizes = 0;     // desktop size changes sent to clients
    std::int64_t riskEvents = 0;  // refused logins and connections refused at the limit
    std::int64_t stalls = 0;      // frames not captured because a client fell behind
    std::string clients;          // the connected clients' systems and codecs; no names or addresses
    bool operator==(const StatsSnapshot&) const = default;
};

// The statistics file's JSON object.
std::string statsJson(const StatsSnapshot& stats);

// "h:mm:ss".
std::string durationText(std::chrono::seconds duration);

class ClientBook {
public:
    using Clock = std::chrono::steady_clock;
    using Id = const void*;

    // `log` takes one line without its line feed; `changed` is called after every change of the
    // counters or the clients (from the calling thread, without the book's lock held).
    ClientBook(int maxConnections, std::function<void(const std::string&)> log, std::function<void()> changed);

    // A client named a user to log in with (over NLA, before its password is checked).
    void loginAttempted(Id client, const std::string& address, const std::string& user);
    // A login was refused: a wrong user name or password.
    void loginRefused(Id client, const std::string& address, const std::string& user);
    // A client finished logging in and asks for the desktop; false when the limit is reached, in
    // which case it is refused and logged.
    bool admit(Id client, const std::string& address, const std::string& user, const std::string& system,
               Clock::time_point now = Clock::now());
    // A frame went to `client` with `codec` ("avc420", "remotefx", ...).
    void frameSent(Id client, const char* codec);
    void resized();
    void stalled(std::int64_t frames);
    // The client's connection is gone. `loggedIn` says whether its security layer (NLA included)
    // was passed: a client that named a user over NLA and never got that far was refused.
    void gone(Id client, bool loggedIn, Clock::time_point now = Clock::now());

    int connected() const;
    StatsSnapshot snapshot() const;

private:
    struct Client {
        std::string address;
        std::string user;
        std::string system;
        std::string codec;
        bool admitted = false;
        bool refusalLogged = false;
        Clock::time_point since;
    };
    void log(const std::string& line) const;

    const int maxConnections_;
    std::function<void(const std::string&)> log_;
    std::function<void()> changed_;
    mutable std::mutex lock_;
    std::map<Id, Client> clients_;
    int admitted_ = 0;
    StatsSnapshot counters_;
};

}  // namespace velmora::ServerHelper
