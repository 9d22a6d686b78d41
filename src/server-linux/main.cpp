// velmora-server: Velmora's server on Linux. Answers the permission probe, or runs FreeRDP's shadow
// server in this process with the settings of Velmora's launch plan.

#include "core/environment.h"
#include "core/server_contract.h"
#include "core/text.h"
#include "server-linux/client_book.h"
#include "server-linux/display_probe.h"
#include "server-linux/helper_log.h"
#include "server-linux/helper_loop.h"
#include "server-linux/secret_environment.h"
#include "server-linux/server_options.h"
#include "server-linux/shadow_host.h"
#include "server-linux/stats_file.h"

#include <condition_variable>
#include <cstdio>
#include <memory>
#include <mutex>
#include <thread>
#include <unistd.h>

using namespace velmora;
using namespace velmora::ServerHelper;

namespace {

// How long clients get to be told goodbye before the process ends regardless.
constexpr auto stopGrace = std::chrono::seconds(5);
// The statistics file is rewritten at most this often while the counters move.
constexpr auto statsInterval = std::chrono::seconds(15);

std::optional<Login> loginFor(const ServerOptions& options, std::optional<std::string>& entry) {
    if (!options.nla) return std::nullopt;
    if (!entry) {
        logLine("NLA asked for without a Windows login; NLA stays off");
        return std::nullopt;
    }
    auto login = parseLoginEntry(*entry);
    if (!login) logLine("the Windows login is malformed; NLA stays off");
    return login;
}

// Ends the process if stopping the server hangs (a client thread that never lets go).
class StopWatchdog {
public:
    explicit StopWatchdog(Ending ending)
        : thread_([this, ending] {
              std::unique_lock lock(mutex_);
              if (!done_.wait_for(lock, stopGrace, [this] { return finished_; })) {
                  logLine("the server did not stop in time; ending it");
                  endProcess(ending);
              }
          }) {}
    ~StopWatchdog() {
        {
            std::lock_guard lock(mutex_);
            finished_ = true;
        }
        done_.notify_one();
        thread_.join();
    }

private:
    std::mutex mutex_;
    std::condition_variable done_;
    bool finished_ = false;
    std::thread thread_;
};

}  // namespace

int main(int argc, char** argv) {
    const pid_t parent = ::getppid();
    // First of all, before anything could copy it: the login leaves the environment.
    std::optional<std::string> loginEntry = takeSecretVariable(std::string(Contract::Env::nlaLogin).c_str());
    const Environment environment = processEnvironment();

    // The probe keeps every signal at its default, so that a stuck display connection still ends
    // when asked to.
    if (probeMode(environment)) {
        auto display = environment.find("DISPLAY");
        std::string name = display == environment.end() ? "" : display->second;
        DisplayAccess access = probeDisplay(name, waylandSession(environment));
        std::fputs(causeLine(access.cause, name).c_str(), stdout);
        std::fputs(probeLine(access.screen, access.input).c_str(), stdout);
        return 0;
    }
    blockHelperSignals();
    // FreeRDP logs to standard output, which shares Velmora's log with the lines on standard error:
    // whole lines only, or they interleave mid-line.
    std::setvbuf(stdout, nullptr, _IOLBF, 0);

    const ServerOptions options = parseOptions(std::vector<std::string>(argv + 1, argv + argc), environment);
    if (!options.ignored.empty()) logLine("left out, not known to this server: " + text::join(options.ignored, " "));
    std::optional<Login> login = loginFor(options, loginEntry);
    if (loginEntry) wipe(*loginEntry);

    std::unique_ptr<StatsFile> stats;
    ClientBook book(options.maxConnections, logLine, [&stats] {
        if (stats) stats->changed();
    });
    if (options.statsFile)
        stats = std::make_unique<StatsFile>(*options.statsFile, [&book] { return book.snapshot(); }, statsInterval);

    Ending ending;
    {
        std::optional<StopWatchdog> watchdog;  // outlives the host, whose end it watches
        ShadowHost host(options, login, book);
        if (!host.start()) return 255;
        ending = waitForEnding(options.watchParent, parent, host.endedDescriptor(), stats.get());
        watchdog.emplace(ending);
        host.stop();
    }
    if (stats) stats->writeNow();
    endProcess(ending);
}
