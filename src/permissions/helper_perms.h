#pragma once
// The permission service: finds the server helper, asks it for its permissions (probe mode) on the
// serial queue "velmora.perms", remembers the answer, and repairs the system's permission entries.
// Results come back on the main queue. Queued work holds the service weakly: once it is gone,
// completions are dropped.

#include "core/main_queue.h"
#include "platform/work_queue.h"
#include "permissions/perm_probe.h"
#include "permissions/perm_repair_plan.h"
#include "permissions/perm_status.h"
#include "platform/app_log.h"
#include "platform/defaults_store.h"
#include "platform/helper_location.h"
#include "platform/paths.h"
#include "platform/work_queue.h"

#include <functional>
#include <memory>
#include <optional>
#include <string>

namespace velmora {

class HelperPerms : public std::enable_shared_from_this<HelperPerms> {
public:
    using Completion = std::function<void(std::optional<PermStatus>)>;
    using Opener = std::function<void(const std::string& url)>;

    // The System Settings panes of the two permissions (macOS).
    static constexpr const char* screenURL =
        "x-apple.systempreferences:com.apple.preference.security?Privacy_ScreenCapture";
    static constexpr const char* inputURL =
        "x-apple.systempreferences:com.apple.preference.security?Privacy_Accessibility";

    struct Setup {
        // The install prefix (Linux) or .app (macOS) to look for the helper in. KORVEN_CLI, when
        // set and not empty, names the server executable instead.
        std::string bundleRoot = platform::bundleRoot();
        // How URLs are opened (the desktop's opener; subsystems have no desktop of their own).
        Opener openURL{};
        // The privacy reset tool; absent where the system keeps no such lists (Linux).
        std::optional<std::string> resetTool = platform::privacyResetTool();
    };

    // The queue and the store must outlive the service.
    static std::shared_ptr<HelperPerms> create(MainQueue& mainQueue, platform::DefaultsStore& store, Setup setup);
    ~HelperPerms();
    HelperPerms(const HelperPerms&) = delete;
    HelperPerms& operator=(const HelperPerms&) = delete;

    const std::optional<std::string>& helperApp() const { return helperApp_; }
    // The server executable, for probes and for the server itself.
    const std::optional<std::string>& helperBinary() const { return helperBinary_; }

    // Main thread. Runs the server in probe mode `mode` ("check" or "request", 10 or 20 seconds at
    // most), records the result, logs "permission <mode>: ..." and calls `completion` on the main
    // queue. Without an executable server: lastProbeFailed at once, no log line, completion(nullopt).
    // In a Wayland session nothing is asked: the answer is "nothing works" for that cause, logged once.
    void probe(const std::string& mode, Completion completion);
    void check(Completion completion) { probe("check", std::move(completion)); }

    // The last status a probe obtained (a failed probe keeps the earlier one), and why a permission
    // was missing then, where the server said so.
    const std::optional<PermStatus>& last() const { return last_; }
    const std::optional<ProbeCause>& lastCause() const { return lastCause_; }
    // The last check found a Wayland session, where no start can work and none is worth retrying.
    bool inWaylandSession() const;
    bool lastProbeFailed() const { return lastProbeFailed_; }
    // Both permissions were reported granted at some time ("helperPermsGrantedOnce").
    bool grantedBefore() const;

    // Main thread. On the queue: register the helper, reset the plan's services for the helper;
    // then on the main queue, the request probe when the plan asks for it, else completion(last()).
    void repair(const PermRepairPlan& plan, Completion completion);
    // On the queue only: resets one privacy entry with the system tool and logs the outcome. Where
    // the system has no such tool (Linux) it does nothing.
    void tccReset(const std::string& service, const std::string& bundleID);
    // Registers the helper application with the system (nothing on Linux); logs a failure.
    void registerHelper();
    // Start-up, main thread: once per user, resets the tray application's own old entries.
    void cleanUpLegacyEntriesOnce();
    // Opens a URL through the opener; a string that is no URL does nothing.
    void open(const std::string& url);

    // The application log writer, by the name the permission service is known by.
    static void log(const std::string& message) { platform::AppLog::write(message); }

    // Blocks until the work queued so far has run (tests, and orderly shutdown).
    void drainQueue() { queue_->drain(); }

private:
    HelperPerms(MainQueue& mainQueue, platform::DefaultsStore& store, Setup setup);

    std::optional<std::string> helperApp_;
    std::optional<std::string> helperBinary_;
    std::unique_ptr<platform::SerialQueue> queue_;
    std::optional<PermStatus> last_;
    std::optional<ProbeCause> lastCause_;
    bool waylandLogged_ = false;
    bool lastProbeFailed_ = false;

    MainQueue& mainQueue_;
    platform::DefaultsStore& store_;
    Opener openURL_;
    std::optional<std::string> resetTool_;
};

}  // namespace velmora
