#include "app/app_delegate.h"

#include "app/status_menu.h"
#include "app/updater.h"
#include "core/app_version.h"
#include "core/text.h"
#include "core/work_queue.h"
#include "netcheck/connection_test.h"
#include "netcheck/diagnostics.h"
#include "netcheck/net_info.h"
#include "platform/paths.h"
#include "process/spawn.h"
#include "settings/keys.h"
#include "settings/settings_store.h"
#include "usage/usage_ping.h"

namespace velmora {

namespace {

// A file:// URL for an absolute path, with everything but unreserved characters and "/" escaped.
std::string fileURL(const std::string& path) {
    static constexpr char hex[] = "0123456789ABCDEF";
    std::string url = "file://";
    for (unsigned char c : path) {
        bool plain = (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '-' ||
                     c == '.' || c == '_' || c == '~' || c == '/';
        if (plain) {
            url += static_cast<char>(c);
        } else {
            url += '%';
            url += hex[c >> 4];
            url += hex[c & 15];
        }
    }
    return url;
}

}  // namespace

std::shared_ptr<AppDelegate> AppDelegate::create(std::shared_ptr<MainQueue> mainQueue, platform::DefaultsStore store,
                                                 AppView& view, Desktop& desktop, Options options) {
    return std::shared_ptr<AppDelegate>(
        new AppDelegate(std::move(mainQueue), std::move(store), view, desktop, std::move(options)));
}

AppDelegate::AppDelegate(std::shared_ptr<MainQueue> mainQueue, platform::DefaultsStore store, AppView& view,
                         Desktop& desktop, Options options)
    : mainQueue_(std::move(mainQueue)),
      store_(std::move(store)),
      view_(view),
      desktop_(desktop),
      options_(std::move(options)) {
    if (!options_.stopLeftovers) options_.stopLeftovers = [] { return Spawn::stopLeftovers(); };
    // The services keep their own copies of the store, so they get the registered layer now;
    // start-up registers again and migrates, which is what writes.
    store_.registerDefaults(registeredSettingsDefaults());
    helperPerms_ = options_.bundleRoot ? HelperPerms::create(mainQueue_, store_, *options_.bundleRoot)
                                       : HelperPerms::create(mainQueue_, store_);
    helperPerms_->opener = [&desktop](const std::string& url) { desktop.openURL(url); };
    supervisor_ = ServerSupervisor::create(mainQueue_, helperPerms_, store_);
    supervisor_->stopGrace = options_.stopGrace;
    settingsForm_ = std::make_unique<SettingsForm>(store_, desktop_, supervisor_, [this] { updateUI(); });
}

std::vector<MenuItem> AppDelegate::menuItems() { return StatusMenu::items(Updater::available); }

void AppDelegate::applicationDidFinishLaunching() {
    view_.becomeAccessory();
    registerDefaultsAndMigrate(store_);
    view_.createStatusItem();
    std::string version = appVersion();
    if (version.empty()) version = "0";
    view_.buildMenu(menuItems());

    std::weak_ptr<AppDelegate> weak = weak_from_this();
    supervisor_->refreshMenu = [weak] {
        if (auto self = weak.lock()) self->updateUI();
    };
    supervisor_->setStatusLine = [weak](const std::string& title) {
        if (auto self = weak.lock()) self->view_.setStatusLine(title);
    };
    supervisor_->showPermissions = [weak](std::function<void()> ready) {
        auto self = weak.lock();
        if (!self) return;
        self->showPermissions({true, true, std::move(ready), self->helperPerms_->last()}, true);
    };

    UsageService::Options usageOptions;
    usageOptions.serverRunning = [weak] {
        auto self = weak.lock();
        return self && self->supervisor_->running();
    };
    usage_ = UsageService::create(*mainQueue_, store_, UsagePing::create(*mainQueue_, usageMachineIdentifier(), version),
                                  usageOptions);
    updateUI();
    usage_->start([weak] {
        if (auto self = weak.lock()) self->minuteTick();
    });

    helperPerms_->cleanUpLegacyEntriesOnce();
    int stopped = options_.stopLeftovers();
    if (stopped >= 1)
        HelperPerms::log("stopped " + std::to_string(stopped) +
                         " Velmora Server left over from an earlier run (it held the port)");

    if (store_.boolean(Key::autoStart)) {
        supervisor_->startServer();
        return;
    }
    helperPerms_->check([weak](std::optional<PermStatus> status) {
        auto self = weak.lock();
        if (!self || !status || status->allOK()) return;
        // The same continuation as "Repair Permissions" with a stopped server: the user starts it.
        self->showPermissions({false, true, self->startServerLater(), status});
    });
}

void AppDelegate::applicationWillTerminate() {
    if (usage_) usage_->stop();
    supervisor_->stopServer();
}

MenuState AppDelegate::menuState() const {
    MenuState state;
    state.running = supervisor_->running();
    state.serverPid = state.running ? supervisor_->task()->pid() : 0;
    std::vector<NetInfo::Address> addresses;
    if (state.running) addresses = NetInfo::localAddresses();
    state.statusLine = StatusMenu::statusLine(state.running, supervisor_->idleStatusLine(), store_.integer(Key::port),
                                              addresses);
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

void AppDelegate::minuteTick() {
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
    bool repeat = quietRepeat && reportedWithoutWindow_ && reportedWithoutWindow_ == request.lastKnown;
    if (!repeat && view_.showPermissions(request)) {
        reportedWithoutWindow_.reset();
        return;
    }
    reportedWithoutWindow_ = request.lastKnown;
    if (request.autoContinue) retryStart_ = std::move(request.onReady);
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

void AppDelegate::openSettings() { view_.openSettings(); }

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

void AppDelegate::checkPermissions() {
    showPermissions({false, true, startServerLater(), helperPerms_->last()});
}

void AppDelegate::repairPermissions() {
    bool wasRunning = supervisor_->running();
    supervisor_->stopServer();
    showPermissions({wasRunning, true, startServerLater(), helperPerms_->last()});
}

void AppDelegate::testConnection() {
    const std::int64_t port = store_.integer(Key::port);
    auto addresses = NetInfo::localAddresses();
    const bool running = supervisor_->running();
    std::weak_ptr<AppDelegate> weak = weak_from_this();
    globalQueue().async([weak, link = mainQueue_->link(), port, running, addresses = std::move(addresses)]() mutable {
        auto test = std::make_shared<ConnectionTest>(runConnectionTest(port, running, std::move(addresses)));
        link->post([weak, test] {
            auto self = weak.lock();
            if (!self) return;
            Alert alert{"Test Connection", test->report(self->desktop_.opensAtLogin()), {"OK", "Copy Address"}};
            if (self->desktop_.runAlert(alert) != 1) return;
            if (std::string address = test->copyText(); !address.empty()) self->desktop_.copyText(address);
        });
    });
}

void AppDelegate::showLog() { desktop_.openURL(fileURL(platform::logFilePath())); }

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
        self->mainQueue_->postAfter(Diagnostics::copiedTitleSeconds, [weak] {
            if (auto again = weak.lock()) again->updateUI();
        });
    });
}

void AppDelegate::quit() { desktop_.terminate(); }

}  // namespace velmora
