#pragma once
// The application object and composition root: builds and owns the permission service, the server
// supervisor, the usage service, the settings form and (on first use) the permissions window's
// controller; runs the start-up sequence and the 60-second tick, computes what the status menu
// shows (updateUI) and carries out every menu action. It reaches the screen only through AppView
// and Desktop, so it runs the same under the tray, --headless and tests. Main thread only; its
// timers and completions hold it weakly.

#include "app/app_view.h"
#include "app/settings_form.h"
#include "app/updater.h"
#include "core/main_queue.h"
#include "permissions/helper_perms.h"
#include "permissions/permissions_controller.h"
#include "platform/defaults_store.h"
#include "platform/paths.h"
#include "platform/words.h"
#include "process/server_supervisor.h"
#include "usage/usage_service.h"

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace velmora {

class AppDelegate : public std::enable_shared_from_this<AppDelegate>, private SupervisorOwner {
public:
    // What the application is made of. The queue and the views must outlive the object.
    struct Setup {
        MainQueue& mainQueue;
        AppView& view;
        Desktop& desktop;
        platform::DefaultsStore store = platform::DefaultsStore();
        // The install prefix to find the server in.
        std::string bundleRoot = platform::bundleRoot();
        // Stops servers left over from an earlier run; returns how many (empty: Spawn::stopLeftovers).
        std::function<int()> stopLeftovers{};
        // Seconds between SIGTERM and SIGKILL when the server is stopped.
        double stopGrace = 20.0;
        // Whose words and ways the windows follow (this platform's).
        platform::Column column = platform::column();
    };

    static constexpr double tickSeconds = 60.0;

    static std::shared_ptr<AppDelegate> create(Setup setup);
    AppDelegate(const AppDelegate&) = delete;
    AppDelegate& operator=(const AppDelegate&) = delete;
    ~AppDelegate() override;

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

    const std::shared_ptr<HelperPerms>& helperPerms() const { return helperPerms_; }
    const std::shared_ptr<ServerSupervisor>& supervisor() const { return supervisor_; }
    const std::shared_ptr<UsageService>& usage() const { return usage_; }
    platform::DefaultsStore& store() { return store_; }
    SettingsForm& settingsForm() { return *settingsForm_; }
    // The permissions window's controller, made on first use.
    PermissionsController& permissions();
    // A start that found a permission missing while no permissions window could be shown: the
    // minute tick tries it again.
    bool startRetryPending() const { return static_cast<bool>(retryStart_); }

private:
    explicit AppDelegate(Setup setup);

    // How the permissions window is asked to open.
    struct PermissionsRequest {
        bool autoContinue = false;            // close and run onReady by itself once all is allowed
        std::function<void()> onReady;        // what continuing does (start the server)
        std::optional<PermStatus> lastKnown;  // the status that made the request, when known
    };
    // `quietRepeat`: a start's own request, which says nothing again while the status is the one
    // already reported without a window.
    void showPermissions(PermissionsRequest request, bool quietRepeat = false);
    void scheduleTick();
    void minuteTick();
    // What the permissions window's continuation does: start the server, if this object still exists.
    std::function<void()> startServerLater();

    // SupervisorOwner
    std::optional<std::string> serverExecutable() const override;
    void checkServerPermissions(std::function<void(StartPermission)> answer) override;
    ServerSettings settingsForLaunch() override;
    void permissionsMissing(std::function<void()> startAgain) override;
    void serverStateChanged() override { updateUI(); }

    MainQueue& mainQueue_;
    AppView& view_;
    Desktop& desktop_;
    platform::DefaultsStore store_;
    std::function<int()> stopLeftovers_;
    platform::Column column_;

    std::shared_ptr<HelperPerms> helperPerms_;
    std::shared_ptr<ServerSupervisor> supervisor_;
    std::shared_ptr<UsageService> usage_;
    std::unique_ptr<SettingsForm> settingsForm_;
    std::shared_ptr<PermissionsController> permissions_;
    TimerHandle tick_;
    std::function<void()> retryStart_;
    std::optional<PermStatus> reportedWithoutWindow_;
};

}  // namespace velmora
