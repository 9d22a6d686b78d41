#pragma once
// The application object: owns the permission service, the server supervisor and the usage
// service for the application's lifetime, runs the start-up sequence, computes what the status menu
// shows (updateUI) and carries out every menu action. It reaches the screen only through AppView
// and Desktop, so it runs the same under the tray, --headless and tests. Main thread only; its
// timers and completions hold it weakly.

#include "app/app_view.h"
#include "app/settings_form.h"
#include "app/updater.h"
#include "core/main_queue.h"
#include "permissions/helper_perms.h"
#include "platform/defaults_store.h"
#include "process/server_supervisor.h"
#include "usage/usage_service.h"

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace velmora {

class AppDelegate : public std::enable_shared_from_this<AppDelegate> {
public:
    struct Options {
        // Stops servers left over from an earlier run; returns how many (default Spawn::stopLeftovers).
        std::function<int()> stopLeftovers;
        // The install prefix to find the server in (default: the running program's).
        std::optional<std::string> bundleRoot;
        // Seconds between SIGTERM and SIGKILL when the server is stopped.
        double stopGrace = 20.0;
    };

    // `view` and `desktop` must outlive the object.
    static std::shared_ptr<AppDelegate> create(std::shared_ptr<MainQueue> mainQueue, platform::DefaultsStore store,
                                               AppView& view, Desktop& desktop, Options options);
    static std::shared_ptr<AppDelegate> create(std::shared_ptr<MainQueue> mainQueue, platform::DefaultsStore store,
                                               AppView& view, Desktop& desktop) {
        return create(std::move(mainQueue), std::move(store), view, desktop, Options{});
    }
    AppDelegate(const AppDelegate&) = delete;
    AppDelegate& operator=(const AppDelegate&) = delete;

    void applicationDidFinishLaunching();
    // Stops the server (SIGTERM, SIGKILL after the grace period); blocks until it is gone.
    void applicationWillTerminate();

    void updateUI();
    // What updateUI shows, computed from the current state.
    MenuState menuState() const;

    // The menu's items as built at start-up.
    static std::vector<MenuItem> menuItems();
    void perform(MenuAction action);

    void toggleServer();
    void openSettings();
    void checkForUpdates() { Updater{}.checkForUpdates(); }
    void toggleAutoStart();
    void toggleUsagePing();
    void toggleLogin();
    void checkPermissions();
    void repairPermissions();
    void testConnection();
    void showLog();
    void copyDiagnostics();
    void quit();

    const std::shared_ptr<MainQueue>& mainQueue() const { return mainQueue_; }
    const std::shared_ptr<HelperPerms>& helperPerms() const { return helperPerms_; }
    const std::shared_ptr<ServerSupervisor>& supervisor() const { return supervisor_; }
    const std::shared_ptr<UsageService>& usage() const { return usage_; }
    platform::DefaultsStore& store() { return store_; }
    // What the settings window fills its controls from and saves through.
    SettingsForm& settingsForm() { return *settingsForm_; }
    // A start that found a permission missing while no permissions window could be shown: the
    // minute tick tries it again.
    bool startRetryPending() const { return static_cast<bool>(retryStart_); }

private:
    AppDelegate(std::shared_ptr<MainQueue> mainQueue, platform::DefaultsStore store, AppView& view, Desktop& desktop,
                Options options);
    // `quietRepeat`: a start's own request, which says nothing again while the status is the one
    // already reported without a window.
    void showPermissions(PermissionsRequest request, bool quietRepeat = false);
    void minuteTick();
    // What the permissions window's continuation does: start the server, if this object still exists.
    std::function<void()> startServerLater();

    std::shared_ptr<MainQueue> mainQueue_;
    platform::DefaultsStore store_;
    AppView& view_;
    Desktop& desktop_;
    Options options_;

    std::shared_ptr<HelperPerms> helperPerms_;
    std::shared_ptr<ServerSupervisor> supervisor_;
    std::shared_ptr<UsageService> usage_;
    std::unique_ptr<SettingsForm> settingsForm_;
    std::function<void()> retryStart_;
    std::optional<PermStatus> reportedWithoutWindow_;
};

}  // namespace velmora
