// The application object on the virtual clock, with in-memory views and a shell script as the
// server: start-up order, what the menu shows, the toggles and the two reports.

#include "app/app_delegate.h"

#include "core/manual_queue.h"
#include "netcheck/net_info.h"
#include "platform/paths.h"
#include "support/loopback.h"
#include "support/scoped_env.h"
#include "support/temp_home.h"

#include <gtest/gtest.h>

using namespace velmora;
using velmora::test::writeFile;

namespace {

struct FakeWindow final : PermissionsWindowView {
    bool visible = false;
    PermissionsModel shown;
    void render(const PermissionsModel& model) override { shown = model; }
    void present() override { visible = true; }
    void orderOut() override { visible = false; }
    bool onScreen() const override { return visible; }
};

// The screen and the desktop in memory: what was shown, said, asked, copied and opened.
struct FakeView final : AppView, Desktop {
    std::vector<std::string> events, notices, copied, opened;
    std::vector<Alert> alerts;
    MenuState shown;
    std::string statusLine;
    bool windows = true, loginItem = false;
    std::optional<std::string> loginItemFailure;
    int alertAnswer = 0;
    FakeWindow* window = nullptr;

    void becomeAccessory() override { events.push_back("accessory"); }
    void createStatusItem() override { events.push_back("status item"); }
    void buildMenu(const std::vector<MenuItem>&) override { events.push_back("menu"); }
    void show(const MenuState& state) override {
        if (events.empty() || events.back() != "show") events.push_back("show");
        shown = state;
        statusLine = state.statusLine;
    }
    void setStatusLine(const std::string& title) override { statusLine = title; }
    bool showsWindows() const override { return windows; }
    void openSettings(SettingsForm&) override { events.push_back("settings"); }
    std::unique_ptr<PermissionsWindowView> makePermissionsWindow(PermissionsController&) override {
        auto made = std::make_unique<FakeWindow>();
        window = made.get();
        return made;
    }
    void notify(const std::string& message) override { notices.push_back(message); }
    int runAlert(const Alert& alert) override {
        alerts.push_back(alert);
        return alertAnswer;
    }
    void copyText(const std::string& text) override { copied.push_back(text); }
    void openURL(const std::string& url) override { opened.push_back(url); }
    bool opensAtLogin() override { return loginItem; }
    std::optional<std::string> setOpensAtLogin(bool on) override {
        if (!loginItemFailure) loginItem = on;
        return loginItemFailure;
    }
    void terminate() override {}
};

class AppDelegateTest : public ::testing::Test {
protected:
    void SetUp() override {
        platform::makeDirectories(platform::logDirectory());
        answer("screen=1 input=1");
        // The probe answers from a file; the server itself just waits.
        test::writeScript(home.path() + "/prefix" + platform::serverExecutableSuffix(),
                          "if [ -n \"$MAC_SHADOW_PERMS\" ]; then cat '" + home.path() +
                              "/answer'; exit 0; fi\nexec sleep 1000\n");
    }
    void TearDown() override {
        if (!delegate) return;
        delegate->applicationWillTerminate();
        delegate->helperPerms()->drainQueue();
    }

    void answer(const std::string& line) { writeFile(home.path() + "/answer", line + "\n"); }
    void launch(const std::string& json) {
        writeFile(platform::defaultsLocation(), json);
        auto stopLeftovers = [this] { view.events.push_back("stop leftovers"); return 2; };
        delegate = AppDelegate::create({.mainQueue = queue, .view = view, .desktop = view, .bundleRoot = home.path() + "/prefix",
                                        .stopLeftovers = stopLeftovers, .stopGrace = 2});
        delegate->applicationDidFinishLaunching();
    }
    bool running() { return delegate->supervisor()->running(); }
    void waitUntilRunning() { ASSERT_TRUE(queue.runUntil([&] { return running(); })); }
    void waitForIdle() {
        ASSERT_TRUE(queue.runUntil([&] { return !delegate->supervisor()->starting(); }));
        queue.runPending();
    }

    test::TempHome home;
    test::ScopedEnv noOverride{"KORVEN_CLI", std::nullopt};
    test::ScopedEnv noService{"VELMORA_SERVICE_URL", std::string("http://127.0.0.1:9")};
    ManualQueue queue;
    FakeView view;
    std::shared_ptr<AppDelegate> delegate;
};

// What the tray shows and does for real (titles, check marks, toggles, quitting) is the tray test's.
TEST_F(AppDelegateTest, StartsUpInOrderShowsWhereToConnectAndCarriesOutTheMenu) {
    launch(R"({"usagePing": false})");
    // The menu and its first state come before the clean-ups, and the start ("Checking
    // permissions…") comes last.
    const std::vector<std::string> order{"accessory", "status item", "menu", "show", "stop leftovers", "show"};
    EXPECT_EQ(view.events, order);
    EXPECT_EQ(view.statusLine, "Checking permissions…");

    waitUntilRunning();
    auto addresses = NetInfo::localAddresses();
    EXPECT_EQ(view.shown.statusLine, addresses.empty() ? std::string("Running on port 3389 (no network)")
                                                       : "Running · " + addresses.front().ip + ":3389");
    delegate->perform(MenuAction::toggleUsagePing);
    EXPECT_TRUE(view.shown.usagePing);  // read back from the store
    view.loginItemFailure = "Could not remove /x: Permission denied";
    delegate->perform(MenuAction::toggleLogin);
    EXPECT_EQ(view.alerts, (std::vector<Alert>{{"Could not change the login item", *view.loginItemFailure, {"OK"}}}));
    EXPECT_FALSE(view.shown.opensAtLogin);  // the real status
    delegate->perform(MenuAction::openSettings);
    EXPECT_EQ(view.events.back(), "settings");
}

TEST_F(AppDelegateTest, WithoutAPermissionsWindowTheMinuteTickStartsTheServerOnceAllowed) {
    answer("cause=screen-unreadable :3\nscreen=0 input=1");
    view.windows = false;
    launch(R"({"usagePing": false})");
    waitForIdle();
    EXPECT_EQ(view.notices, std::vector<std::string>{"The display :3 is open, but its screen cannot be read. Velmora shares "
                                                     "X11 desktops whose screen may be read by their own user. The server "
                                                     "was not started (checking again every minute)"});
    // Still missing a minute later: checked again, but not reported again.
    queue.advance(60);
    waitForIdle();
    EXPECT_EQ(view.notices.size(), 1u);

    answer("screen=1 input=1");
    queue.advance(60);
    waitUntilRunning();
}

TEST_F(AppDelegateTest, AMissingPermissionOpensTheWindowAtStartUpAndTheReportsFollowTheServer) {
    test::ScopedEnv state{"XDG_STATE_HOME", home.path() + "/my state"};
    const int port = test::closedLoopbackPort();
    answer("screen=1 input=0");
    launch(R"({"autoStart": false, "usagePing": false, "port": )" + std::to_string(port) + "}");
    ASSERT_TRUE(queue.runUntil([&] { return view.window && view.window->visible; }));

    // What the report holds is the diagnostics command's test; here it is copied and said for 4 s.
    delegate->perform(MenuAction::copyDiagnostics);
    ASSERT_TRUE(queue.runUntil([&] { return !view.copied.empty(); }));
    queue.advance(3.9);
    EXPECT_EQ(view.statusLine, "Diagnostics copied. Paste them into your email.");
    queue.advance(0.2);
    EXPECT_EQ(view.statusLine, "Stopped");
    delegate->perform(MenuAction::showLog);
    EXPECT_EQ(view.opened, std::vector<std::string>{"file://" + home.path() + "/my%20state/velmora/Velmora.log"});

    // Allowed now: the window's poll sees it, but with autoStart off only its button starts the server.
    answer("screen=1 input=1");
    delegate->helperPerms()->drainQueue();  // no probe is still out, so the next poll asks again
    queue.runPending();
    queue.advance(2);
    ASSERT_TRUE(queue.runUntil([&] { return view.window->shown.startButtonEnabled; }));
    EXPECT_FALSE(running());
    delegate->permissions().startNow();
    waitUntilRunning();

    // The stand-in server listens nowhere, the login item is on now, and "Copy Address" copies the
    // first address. (What a stopped server's test says is the test-connection command's test.)
    view.copied.clear();
    view.loginItem = true;
    view.alertAnswer = 1;
    delegate->perform(MenuAction::testConnection);
    ASSERT_TRUE(queue.runUntil([&] { return !view.alerts.empty(); }, 20));
    auto addresses = NetInfo::localAddresses();
    EXPECT_EQ(view.alerts, (std::vector<Alert>{{"Test Connection", NetInfo::report(port, true, addresses, false, {}, true),
                                                {"OK", "Copy Address"}}}));
    std::vector<std::string> expected;
    if (!addresses.empty()) expected.push_back(addresses.front().ip + ":" + std::to_string(port));
    EXPECT_EQ(view.copied, expected);
}

}  // namespace
