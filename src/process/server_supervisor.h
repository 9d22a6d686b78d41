#pragma once
// The server's life on the application's side: start after a permission check, launch with the
// current settings and the output appended to the log, notice the end, restart after 2, 4, 8, 16,
// 32 and then 60 seconds when it ended with an error (a run of 300 s or more resets the count), and
// stop on request or at quit. Owned by the application object through a std::shared_ptr; everything
// here runs on the main queue and its callbacks hold the supervisor weakly.

#include "core/main_queue.h"
#include "permissions/helper_perms.h"
#include "platform/defaults_store.h"
#include "process/spawned_process.h"
#include "settings/server_settings.h"

#include <functional>
#include <memory>
#include <optional>
#include <string>

namespace velmora {

// The status line while a start waits for the permission check.
inline constexpr const char* checkingPermissionsText = "Checking permissions…";

// Seconds before the next automatic restart after `inARow` unexpected ends (below 1 counts as 1).
double serverRestartDelay(int inARow);

class ServerSupervisor : public std::enable_shared_from_this<ServerSupervisor> {
public:
    static std::shared_ptr<ServerSupervisor> create(std::shared_ptr<MainQueue> mainQueue,
                                                    std::shared_ptr<HelperPerms> helperPerms,
                                                    platform::DefaultsStore store);
    ServerSupervisor(const ServerSupervisor&) = delete;
    ServerSupervisor& operator=(const ServerSupervisor&) = delete;

    // Requests a start: ignored while running or while a check is under way. Returns at once.
    void startServer();
    // Stops now: cancels a pending restart, then SIGTERM and SIGKILL after the grace. Blocks.
    void stopServer();
    void restartServer();
    // The menu's Start/Stop item.
    void toggleServer();

    bool running() const;
    bool starting() const { return starting_; }
    // The last start or run failure, cleared at each launch.
    const std::optional<std::string>& lastError() const { return lastError_; }
    const std::shared_ptr<SpawnedProcess>& task() const { return task_; }
    int unexpectedEnds() const { return unexpectedEnds_; }
    bool restartPending() const { return restartTimer_ && restartTimer_->pending(); }

    // The server executable, as the permission service found it.
    std::optional<std::string> cliPath() const { return helperPerms_->helperBinary(); }
    // The log the server's output is appended to.
    static std::string logPath();

    // The status line when no server runs: checkingPermissionsText while checking, else lastError,
    // else "Stopped".
    std::string idleStatusLine() const;

    // Hooks the application fills in.
    std::function<void()> refreshMenu;                                   // after every state change
    std::function<void(const std::string& text)> setStatusLine;          // "Checking permissions…"
    std::function<void(std::function<void()> ready)> showPermissions;    // permissions missing
    // A fresh settings snapshot for each launch (the defaults store and the keyring by default).
    std::function<ServerSettings()> readSettings;
    // Seconds between SIGTERM and SIGKILL when stopping.
    double stopGrace = 20.0;

private:
    ServerSupervisor(std::shared_ptr<MainQueue> mainQueue, std::shared_ptr<HelperPerms> helperPerms,
                     platform::DefaultsStore store);
    void permissionsChecked(const std::string& cli, const std::optional<PermStatus>& status);
    void launchServer(const std::string& cli);
    void serverEnded(SpawnedProcess& process);
    void refresh() const;

    std::shared_ptr<MainQueue> mainQueue_;
    std::shared_ptr<HelperPerms> helperPerms_;
    platform::DefaultsStore store_;

    std::shared_ptr<SpawnedProcess> task_;
    bool starting_ = false;
    double serverStartedAt_ = 0;
    int unexpectedEnds_ = 0;
    TimerHandle restartTimer_;
    std::optional<std::string> lastError_;
};

}  // namespace velmora
