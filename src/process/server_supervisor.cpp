#include "process/server_supervisor.h"

#include "core/environment.h"
#include "core/text.h"
#include "netcheck/net_info.h"
#include "platform/app_log.h"
#include "platform/spawn_attributes.h"
#include "platform/words.h"
#include "process/server_cert.h"
#include "process/spawn.h"
#include "settings/launch_plan.h"

#include <cmath>
#include <unistd.h>

namespace velmora {

double serverRestartDelay(int inARow) {
    int n = inARow < 1 ? 1 : inARow;
    return n > 5 ? 60.0 : std::pow(2.0, n);
}

std::shared_ptr<ServerSupervisor> ServerSupervisor::create(MainQueue& mainQueue, SupervisorOwner& owner,
                                                           double stopGrace) {
    return std::shared_ptr<ServerSupervisor>(new ServerSupervisor(mainQueue, owner, stopGrace));
}

ServerSupervisor::ServerSupervisor(MainQueue& mainQueue, SupervisorOwner& owner, double stopGrace)
    : mainQueue_(mainQueue), owner_(owner), stopGrace_(stopGrace) {}

std::string ServerSupervisor::logPath() { return platform::AppLog::path(); }

bool ServerSupervisor::running() const { return task_ && task_->isRunning(); }

std::string ServerSupervisor::idleStatusLine() const {
    if (starting_) return checkingPermissionsText;
    return lastError_ ? *lastError_ : "Stopped";
}

void ServerSupervisor::startServer() { start(false); }

void ServerSupervisor::start(bool automatic) {
    if (running() || starting_) return;
    automatic_ = automatic;
    auto cli = owner_.serverExecutable();
    if (!cli || !Spawn::isExecutableFile(*cli)) return startFailed(platform::say(platform::words::serverNotFound));
    starting_ = true;
    owner_.serverStateChanged();  // "Checking permissions…"
    std::weak_ptr<ServerSupervisor> weak = weak_from_this();
    owner_.checkServerPermissions([weak, cli = *cli](StartPermission answer) {
        if (auto self = weak.lock()) self->permissionsChecked(cli, answer);
    });
}

void ServerSupervisor::permissionsChecked(const std::string& cli, StartPermission answer) {
    starting_ = false;
    switch (answer) {
        case StartPermission::noAnswer:
            return startFailed("Velmora Server did not answer the permission check. See Show Log.");
        case StartPermission::missing: {
            owner_.serverStateChanged();
            std::weak_ptr<ServerSupervisor> weak = weak_from_this();
            owner_.permissionsMissing([weak] {
                if (auto self = weak.lock()) self->startServer();
            });
            return;
        }
        case StartPermission::granted: launchServer(cli); return;
    }
}

void ServerSupervisor::startFailed(std::string error) {
    lastError_ = std::move(error);
    // Nobody may be at the computer to press "Start Server": a restart Velmora scheduled itself
    // keeps trying with the back-off. A start the user asked for stops here, with the message.
    if (automatic_) scheduleRestart(unexpectedEnds_ + 1);
    owner_.serverStateChanged();
}

void ServerSupervisor::launchServer(const std::string& cli) {
    const ServerSettings settings = owner_.settingsForLaunch();
    port_ = settings.port;
    // Another program on the port would make the server end at once; say what is wrong instead.
    if (NetInfo::portTaken(port_)) {
        platform::AppLog::write(portTakenLogLine());
        return startFailed(NetInfo::portTakenText(port_));
    }
    LaunchPlan plan = buildLaunchPlan(processEnvironment(), settings);
    if (ServerCert::removeIfNameless())
        platform::AppLog::write(
            "removed the server certificate without a name; the server makes a new one (clients will ask to trust it once)");
    // Without a log the server still runs, its output discarded.
    int logFd = platform::AppLog::openForAppend(logPath());
    std::optional<int> output = logFd >= 0 ? std::optional<int>(logFd) : std::nullopt;
    // The environment may hold the Windows login: never logged.
    platform::AppLog::write("starting Velmora Server: " + text::join(plan.arguments, " "));
    lastError_.reset();
    try {
        auto process = Spawn::start(cli, plan.arguments, plan.environment, output, output, true, mainQueue_.link());
        if (!process->disclaimed() && platform::systemTracksResponsibility())
            platform::AppLog::write(
                "warning: could not make Velmora Server responsible for itself; macOS will ask about Velmora instead");
        std::weak_ptr<ServerSupervisor> weak = weak_from_this();
        process->onExit = [weak](SpawnedProcess& ended) {
            if (auto self = weak.lock()) self->serverEnded(ended);
        };
        task_ = std::move(process);
        serverStartedAt_ = mainQueue_.now();
    } catch (const Spawn::Failure& failure) {
        if (logFd >= 0) ::close(logFd);
        return startFailed(failure.description());
    }
    owner_.serverStateChanged();
    if (logFd >= 0) ::close(logFd);  // the child keeps its own copy
}

void ServerSupervisor::serverEnded(SpawnedProcess& process) {
    // A deliberate stop cleared or replaced task_ first, so it never counts as an unexpected end.
    if (task_.get() != &process) return;
    task_.reset();
    const int code = process.exitCode();
    platform::AppLog::write("Velmora Server ended (code " + std::to_string(code) + ")");
    if (code == 0) {
        owner_.serverStateChanged();
        return;
    }
    lastError_ = "Stopped unexpectedly (code " + std::to_string(code) + ")";
    // An end caused by another program on the port is named as such.
    if (NetInfo::portTaken(port_)) {
        platform::AppLog::write(portTakenLogLine());
        lastError_ = NetInfo::portTakenText(port_);
    }
    double ran = mainQueue_.now() - serverStartedAt_;
    // A long healthy run resets the streak; this end is the first of a new one.
    scheduleRestart(ran < 300 ? unexpectedEnds_ + 1 : 1);
    owner_.serverStateChanged();
}

std::string ServerSupervisor::portTakenLogLine() const {
    return "port " + std::to_string(port_) + " is in use by another program; Velmora Server cannot listen on it";
}

void ServerSupervisor::scheduleRestart(int inARow) {
    unexpectedEnds_ = inARow;
    double delay = serverRestartDelay(unexpectedEnds_);
    platform::AppLog::write("starting Velmora Server again in " + std::to_string(static_cast<long long>(delay)) +
                            " s (" + std::to_string(unexpectedEnds_) + " unexpected end" +
                            (unexpectedEnds_ == 1 ? "" : "s") + " in a row)");
    if (restartTimer_) restartTimer_->cancel();
    std::weak_ptr<ServerSupervisor> weak = weak_from_this();
    restartTimer_ = mainQueue_.postAfter(delay, [weak] {
        auto self = weak.lock();
        if (!self) return;
        self->restartTimer_.reset();
        self->start(true);
    });
}

void ServerSupervisor::stopServer() {
    if (restartTimer_) {
        restartTimer_->cancel();
        restartTimer_.reset();
    }
    if (!task_) return;
    auto process = std::move(task_);
    task_.reset();
    process->terminate(stopGrace_);
    platform::AppLog::write("Velmora Server stopped");
    owner_.serverStateChanged();
}

void ServerSupervisor::restartServer() {
    stopServer();
    startServer();
}

void ServerSupervisor::toggleServer() {
    if (running()) stopServer();
    else startServer();
}

}  // namespace velmora
