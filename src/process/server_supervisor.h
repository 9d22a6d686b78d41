#pragma once
// The server's life on the application's side: start after a permission check, launch with the
// current settings and the output appended to the log, notice the end, restart after 2, 4, 8, 16,
// 32 and then 60 seconds when it ended with an error (a run of 300 s or more resets the count), and
// stop on request or at quit. Everything here runs on the main queue; its callbacks hold the
// supervisor weakly.

#include "core/main_queue.h"
#include "process/spawned_process.h"
#include "settings/server_settings.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>

namespace velmora {

// The status line while a start waits for the permission check.
inline constexpr const char* checkingPermissionsText = "Checking permissions…";

// Seconds before the next automatic restart after `inARow` unexpected ends (below 1 counts as 1).
double serverRestartDelay(int inARow);

// What the permission check before a start found.
enum class StartPermission { noAnswer, missing, granted };

// What the supervisor needs from the application that owns it (and outlives it).
class SupervisorOwner {
public:
    virtual ~SupervisorOwner() = default;
    // The server executable, when it was found.
    virtual std::optional<std::string> serverExecutable() const = 0;
    // Asks whether the server has its permissions; `answer` runs on the main queue.
    virtual void checkServerPermissions(std::function<void(StartPermission)> answer) = 0;
    // A fresh snapshot of the settings for one launch.
    virtual ServerSettings settingsForLaunch() = 0;
    // A permission is missing: show it; `startAgain` starts the server once everything is allowed.
    virtual void permissionsMissing(std::function<void()> startAgain) = 0;
    // After every change of state (the menu is refreshed).
    virtual void serverStateChanged() = 0;
};

class ServerSupervisor : public std::enable_shared_from_this<ServerSupervisor> {
public:
    // `stopGrace`: seconds between SIGTERM and SIGKILL when the server is stopped.
    static std::shared_ptr<ServerSupervisor> create(MainQueue& mainQueue, SupervisorOwner& owner,
                                                    double stopGrace = 20.0);
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

    // The log the server's output is appended to.
    static std::string logPath();

    // The status line when no server runs: checkingPermissionsText while checking, else lastError,
    // else "Stopped".
    std::string idleStatusLine() const;

private:
    ServerSupervisor(MainQueue& mainQueue, SupervisorOwner& owner, double stopGrace);
    // `automatic`: a restart this supervisor scheduled, which keeps trying when it cannot go ahead.
    void start(bool automatic);
    void permissionsChecked(const std::string& cli, StartPermission answer);
    void startFailed(std::string error);
    void launchServer(const std::string& cli);
    void serverEnded(SpawnedProcess& process);
    void scheduleRestart(int inARow);
    std::string portTakenLogLine() const;

    MainQueue& mainQueue_;
    SupervisorOwner& owner_;
    const double stopGrace_;

    std::shared_ptr<SpawnedProcess> task_;
    bool starting_ = false;
    bool automatic_ = false;
    std::int64_t port_ = 0;  // of the last launch
    double serverStartedAt_ = 0;
    int unexpectedEnds_ = 0;
    TimerHandle restartTimer_;
    std::optional<std::string> lastError_;
};

}  // namespace velmora
