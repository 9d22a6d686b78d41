#include "app/app_delegate.h"

#include "app/status_menu.h"
#include "app/updater.h"
#include "core/app_version.h"
#include "core/text.h"
#include "platform/work_queue.h"
#include "netcheck/connection_test.h"
#include "netcheck/diagnostics.h"
#include "netcheck/net_info.h"
#include "platform/paths.h"
#include "platform/words.h"
#include "process/spawn.h"
#include "settings/keys.h"
#include "settings/settings_store.h"
#include "usage/usage_ping.h"

namespace velmora {

std::shared_ptr<AppDelegate> AppDelegate::create(Setup setup) {
    return std::shared_ptr<AppDelegate>(new AppDelegate(std::move(setup)));
}

AppDelegate::AppDelegate(Setup setup)
    : mainQueue_(setup.mainQueue),
      view_(setup.view),
      desktop_(setup.desktop),
      store_(std::move(setup.store)),
      stopLeftovers_(std::move(setup.stopLeftovers)),
      column_(setup.column) {
    if (!stopLeftovers_) stopLeftovers_ = [] { return Spawn::stopLeftovers(); };
    // The registered layer is in place before anything reads; start-up registers again and
    // migrates, which is what may write.
    store_.registerDefaults(registeredSettingsDefaults());
    helperPerms_ = HelperPerms::create(
        mainQueue_, store_, {.bundleRoot = setup.bundleRoot, .openURL = [this](const std::string& url) { desktop_.openURL(url); }});
    supervisor_ = ServerSupervisor::create(mainQueue_, *this, setup.stopGrace);
    std::string version = appVersion();
    usage_ = UsageService::create(mainQueue_, store_,
                                  UsagePing::create(mainQueue_, usageMachineIdentifier(), version.empty() ? "0" : version),
                                  {});
    settingsForm_ = std::make_unique<SettingsForm>(store_, desktop_, supervisor_, [this] { updateUI(); }, column_);
}

AppDelegate::~AppDelegate() {
    if (tick_) tick_->cancel();
}

PermissionsController& AppDelegate::permissions() {
    if (!permissions_)
        permissions_ = PermissionsController::create(
            mainQueue_, helperPerms_, [this](PermissionsController& owner) { return view_.makePermissionsWindow(owner); },
            column_);
    return *permissions_;
}

std::optional<std::string> AppDelegate::serverExecutable() const { return helperPerms_->helperBinary(); }

void AppDelegate::checkServerPermissions(std::function<void(StartPermission)> answer) {
    helperPerms_->check([answer = std::move(answer)](std::optional<PermStatus> status) {
        answer(!status ? StartPermission::noAnswer : status->allOK() ? StartPermission::granted : StartPermission::missing);
    });
}

ServerSettings AppDelegate::settingsForLaunch() { return currentSettings(store_); }

void AppDelegate::permissionsMissing(std::function<void()> startAgain) {
    showPermissions({true, std::move(startAgain), helperPerms_->last()}, true);
}

std::vector<MenuItem> AppDelegate::menuItems() { return StatusMenu::items(Updater::available); }

void AppDelegate::applicationDidFinishLaunching() {
    view_.becomeAccessory();
    registerDefaultsAndMigrate(store_);
    view_.createStatusItem();
    view_.buildMenu(menuItems());
    updateUI();
    scheduleTick();

    helperPerms_->cleanUpLegacyEntriesOnce();
    int stopped = stopLeftovers_();
    if (stopped >= 1)
        HelperPerms::log("stopped " + std::to_string(stopped) +
                         " Velmora Server left over from an earlier run (it held the port)");

    if (store_.boolean(Key::autoStart)) {
        supervisor_->startServer();
        return;
    }
    std::weak_ptr<AppDelegate> weak = weak_from_this();
    helperPerms_->check([weak](std::optional<PermStatus> status) {
        auto self = weak.lock();
        if (!self || !status || status->allOK()) return;
        // The same continuation as "Repair Permissions" with a stopped server: the user starts it.
        self->showPermissions({false, self->startServerLater(), status});
    });
}

void AppDelegate::applicationWillTerminate() {
    if (tick_) tick_->cancel();
    supervisor_->stopServer();
}

MenuState AppDelegate::menuState() const {
    MenuState state;
    state.running = supervisor_->running();
    state.serverPid = state.running ? supervisor_->task()->pid() : 0;
    std::vector<NetInfo::Address> addresses;
    if (state.running) addresses = NetInfo::localAddresses();
    std::string idle = supervisor_->idleStatusLine();
    // In a Wayland session no start can work: the line says why instead of "Stopped".
    if (!supervisor_->starting() && helperPerms_->inWaylandSession())
        idle = platform::say(platform::words::waylandStatus);
    state.statusLine = StatusMenu::statusLine(state.running, idle, store_.integer(Key::port), addresses);
    state.toggleTitle = StatusMenu::toggleTitle(state.running);
    state.autoStart = store_.boolean(Key::autoStart);
    state.usagePing = store_.boolean(Key::usagePing);
    state.opensAtLogin = desktop_.opensAtLogin();
    return state;
}

void AppDelegate::updateUI() {
    MenuState state = menuState();
    if (state.running) reportedWithoutWindow_.reset();
    view_.show(state);
}

void AppDelegate::scheduleTick() {
    std::weak_ptr<AppDelegate> weak = weak_from_this();
    tick_ = mainQueue_.postAfter(tickSeconds, [weak] {
        if (auto self = weak.lock()) {
            self->minuteTick();
            self->scheduleTick();
        }
    });
}

void AppDelegate::minuteTick() {
    usage_->usageTick(supervisor_->running());
    updateUI();
    // Without a permissions window nobody else would ever continue that start.
    if (auto retry = std::move(retryStart_)) {
        retryStart_ = nullptr;
        retry();
    }
}

std::function<void()> AppDelegate::startServerLater() {
    return [weak = weak_from_this()] {
        if (auto self = weak.lock()) self->supervisor_->startServer();
    };
}

void AppDelegate::showPermissions(PermissionsRequest request, bool quietRepeat) {
    if (view_.showsWindows()) {
        permissions().show(request.autoContinue, true, std::move(request.onReady));
        return;
    }
    // A Wayland session stays one: trying again every minute would only repeat the message.
    const bool retry = request.autoContinue && !helperPerms_->inWaylandSession();
    bool repeat = quietRepeat && reportedWithoutWindow_ && reportedWithoutWindow_ == request.lastKnown;
    if (!repeat) {
        std::string message = missingPermissionText(request.lastKnown, helperPerms_->lastCause());
        message += (message.ends_with(".") ? " T" : "; t") + platform::say(platform::words::notStarted).substr(1);
        if (retry) message += " (checking again every minute)";
        HelperPerms::log(message);
        view_.notify(message);
    }
    reportedWithoutWindow_ = request.lastKnown;
    if (retry) retryStart_ = std::move(request.onReady);
}

void AppDelegate::perform(MenuAction action) {
    switch (action) {
        case MenuAction::none: return;
        case MenuAction::toggleServer: return toggleServer();
        case MenuAction::openSettings: return openSettings();
        case MenuAction::checkForUpdates: return checkForUpdates();
        case MenuAction::toggleAutoStart: return toggleAutoStart();
        case MenuAction::toggleUsagePing: return toggleUsagePing();
        case MenuAction::toggleLogin: return toggleLogin();
        case MenuAction::checkPermissions: return checkPermissions();
        case MenuAction::repairPermissions: return repairPermissions();
        case MenuAction::testConnection: return testConnection();
        case MenuAction::showLog: return showLog();
        case MenuAction::copyDiagnostics: return copyDiagnostics();
        case MenuAction::quit: return quit();
    }
}

void AppDelegate::toggleServer() {
    // A click while a start waits for its permissions window is an answer to that wait.
    retryStart_ = nullptr;
    supervisor_->toggleServer();
    updateUI();
}

void AppDelegate::openSettings() { view_.openSettings(*settingsForm_); }

void AppDelegate::toggleAutoStart() {
    store_.set(Key::autoStart, !store_.boolean(Key::autoStart));
    updateUI();
}

void AppDelegate::toggleUsagePing() {
    store_.set(Key::usagePing, !store_.boolean(Key::usagePing));
    updateUI();
}

void AppDelegate::toggleLogin() {
    if (auto error = desktop_.setOpensAtLogin(!desktop_.opensAtLogin()))
        desktop_.runAlert({"Could not change the login item", *error, {"OK"}});
    updateUI();
}

void AppDelegate::checkPermissions() { showPermissions({false, startServerLater(), helperPerms_->last()}); }

void AppDelegate::repairPermissions() {
    bool wasRunning = supervisor_->running();
    supervisor_->stopServer();
    showPermissions({wasRunning, startServerLater(), helperPerms_->last()});
}

void AppDelegate::testConnection() {
    const std::int64_t port = store_.integer(Key::port);
    auto addresses = NetInfo::localAddresses();
    const bool running = supervisor_->running();
    std::vector<int> server;
    if (running) server.push_back(supervisor_->task()->pid());
    std::weak_ptr<AppDelegate> weak = weak_from_this();
    platform::globalQueue().async([weak, link = mainQueue_.link(), port, running, addresses = std::move(addresses),
                                   server]() mutable {
        auto test = std::make_shared<ConnectionTest>(runConnectionTest(port, running, std::move(addresses), server));
        link->post([weak, test] {
            auto self = weak.lock();
            if (!self) return;
            Alert alert{"Test Connection", test->report(self->desktop_.opensAtLogin()), {"OK", "Copy Address"}};
            if (self->desktop_.runAlert(alert) != 1) return;
            if (std::string address = test->copyText(); !address.empty()) self->desktop_.copyText(address);
        });
    });
}

void AppDelegate::showLog() { desktop_.openURL(text::fileURL(platform::logFilePath())); }

void AppDelegate::copyDiagnostics() {
    std::weak_ptr<AppDelegate> weak = weak_from_this();
    helperPerms_->check([weak](std::optional<PermStatus> status) {
        auto self = weak.lock();
        if (!self) return;
        std::vector<Diagnostics::Permission> permissions;
        if (status) permissions = Diagnostics::permissionEntries(status->screen, status->input);
        std::string version = appVersion();
        std::string report = Diagnostics::gather(version.empty() ? "?" : version, currentSettings(self->store_),
                                                 self->supervisor_->running(), permissions, platform::logFilePath());
        self->desktop_.copyText(report);
        self->view_.setStatusLine(Diagnostics::copiedTitle);
        self->mainQueue_.postAfter(Diagnostics::copiedTitleSeconds, [weak] {
            if (auto again = weak.lock()) again->updateUI();
        });
    });
}

void AppDelegate::quit() { desktop_.terminate(); }

}  // namespace velmora
