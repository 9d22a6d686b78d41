// The application object on the virtual clock, with in-memory views and a shell script as the
// server: start-up order, what the menu shows, the toggles, the two reports and quitting.

#include "app/app_delegate.h"

#include "core/app_version.h"
#include "core/manual_queue.h"
#include "netcheck/net_info.h"
#include "platform/paths.h"
#include "platform/words.h"
#include "process/spawn.h"
#include "settings/keys.h"
#include "support/http_server.h"
#include "support/log_lines.h"
#include "support/loopback.h"
#include "support/scoped_env.h"
#include "support/temp_home.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <sys/stat.h>

using namespace velmora;
using velmora::test::readFile;
using velmora::test::TempHome;
using velmora::test::writeFile;
using velmora::test::writeScript;

namespace {

// The permissions window as the controller sees it.
struct FakeWindow final : PermissionsWindowView {
    bool visible = false;
    PermissionsModel shown;
    void render(const PermissionsModel& model) override { shown = model; }
    void present() override { visible = true; }
    void orderOut() override { visible = false; }
    bool onScreen() const override { return visible; }
};

struct FakeView final : AppView, Desktop {
    std::vector<std::string> events, notices;
    std::vector<MenuItem> menu;
    MenuState shown;
    std::string statusLine;
    bool windows = true;
    FakeWindow* window = nullptr;
    std::vector<Alert> alerts;
    int alertAnswer = 0;
    std::vector<std::string> copied, opened;
    bool loginItem = false;
    std::optional<std::string> loginItemFailure;
    int terminated = 0;

    void becomeAccessory() override { events.push_back("accessory"); }
    void createStatusItem() override { events.push_back("status item"); }
    void buildMenu(const std::vector<MenuItem>& items) override {
        events.push_back("menu");
        menu = items;
    }
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
        if (loginItemFailure) return loginItemFailure;
        loginItem = on;
        return std::nullopt;
    }
    void terminate() override { ++terminated; }
};

class AppDelegateTest : public ::testing::Test {
protected:
    void SetUp() override {
        platform::makeDirectories(platform::logDirectory());
        answer("screen=1 input=1");
        // The probe answers from a file; the server itself just waits.
        writeScript(home.path() + "/prefix" + platform::serverExecutableSuffix(),
                    "if [ -n \"$MAC_SHADOW_PERMS\" ]; then cat '" + home.path() + "/answer'; exit 0; fi\nexec sleep 1000\n");
    }
    void TearDown() override {
        if (delegate) {
            delegate->applicationWillTerminate();
            delegate->helperPerms()->drainQueue();
        }
    }

    void answer(const std::string& line) { writeFile(home.path() + "/answer", line + "\n"); }
    void settings(const std::string& json) { writeFile(platform::defaultsLocation(), json); }

    void launch() {
        delegate = AppDelegate::create({.mainQueue = queue,
                                        .view = view,
                                        .desktop = view,
                                        .bundleRoot = home.path() + "/prefix",
                                        .stopLeftovers =
                                            [this] {
                                                view.events.push_back("stop leftovers");
                                                return 2;
                                            },
                                        .stopGrace = 2});
        delegate->applicationDidFinishLaunching();
    }
    bool running() { return delegate->supervisor()->running(); }
    void waitUntilRunning() { ASSERT_TRUE(queue.runUntil([&] { return running(); })); }
    void waitForIdle() {
        ASSERT_TRUE(queue.runUntil([&] { return !delegate->supervisor()->starting(); }));
        queue.runPending();
    }

    TempHome home;
    test::ScopedEnv noOverride{"KORVEN_CLI", std::nullopt};
    test::ScopedEnv noService{"VELMORA_SERVICE_URL", std::string("http://127.0.0.1:9")};
    ManualQueue queue;
    FakeView view;
    std::shared_ptr<AppDelegate> delegate;
};

TEST_F(AppDelegateTest, StartsUpInOrderAndShowsTheRunningServer) {
    settings(R"({"security": "tls", "usagePing": false})");
    launch();
    // The menu and its first state come before the clean-ups, and the start ("Checking
    // permissions…") comes last.
    std::vector<std::string> expected{"accessory", "status item", "menu", "show", "stop leftovers", "show"};
    EXPECT_EQ(view.events, expected);
    EXPECT_EQ(view.statusLine, "Checking permissions…");
    EXPECT_FALSE(platform::DefaultsStore().storedObject(Key::sec).has_value());

    // The exact titles, shortcuts and check marks are read back from the real tray's exported menu.
    EXPECT_EQ(view.menu.size(), 15u);
    EXPECT_FALSE(view.menu[0].enabled);

    waitUntilRunning();
    auto addresses = NetInfo::localAddresses();
    EXPECT_EQ(view.shown.statusLine, addresses.empty() ? "Running on port 3389 (no network)"
                                                       : "Running · " + addresses.front().ip + ":3389");
    EXPECT_EQ(view.shown.toggleTitle, "Stop Server");
    EXPECT_TRUE(view.shown.running);
    EXPECT_TRUE(view.shown.autoStart);
    EXPECT_FALSE(view.shown.usagePing);
    auto log = test::logMessages();
    EXPECT_NE(std::find(log.begin(), log.end(),
                        "stopped 2 Velmora Server left over from an earlier run (it held the port)"),
              log.end());

    // The status line reads the stored port as it is, even one the server could not use.
    settings(R"({"port": 70000, "usagePing": false})");
    delegate->updateUI();
    EXPECT_EQ(view.shown.statusLine, addresses.empty() ? "Running on port 70000 (no network)"
                                                       : "Running · " + addresses.front().ip + ":70000");

    delegate->perform(MenuAction::toggleServer);
    EXPECT_FALSE(running());
    EXPECT_EQ(view.shown.statusLine, "Stopped");
    EXPECT_EQ(view.shown.toggleTitle, "Start Server");
}

TEST_F(AppDelegateTest, TogglesWriteTheStoreAndALoginItemFailureIsShown) {
    settings(R"({"autoStart": false, "usagePing": false})");
    launch();
    waitForIdle();
    delegate->perform(MenuAction::toggleAutoStart);
    delegate->perform(MenuAction::toggleUsagePing);
    platform::DefaultsStore store;
    EXPECT_TRUE(store.boolean(Key::autoStart));
    EXPECT_TRUE(store.boolean(Key::usagePing));
    EXPECT_TRUE(view.shown.autoStart && view.shown.usagePing);

    delegate->perform(MenuAction::toggleLogin);
    EXPECT_TRUE(view.loginItem);
    EXPECT_TRUE(view.shown.opensAtLogin);
    view.loginItemFailure = "Could not remove /x: Permission denied";
    delegate->perform(MenuAction::toggleLogin);
    ASSERT_EQ(view.alerts.size(), 1u);
    EXPECT_EQ(view.alerts[0], (Alert{"Could not change the login item", "Could not remove /x: Permission denied", {"OK"}}));
    EXPECT_TRUE(view.shown.opensAtLogin);  // the real status

    delegate->perform(MenuAction::openSettings);
    EXPECT_EQ(view.events.back(), "settings");

    delegate->perform(MenuAction::quit);
    EXPECT_EQ(view.terminated, 1);
}

TEST_F(AppDelegateTest, MissingPermissionsAtStartUp) {
    // autoStart off: the window without automatic continuation; its "Start Server" starts the server.
    settings(R"({"autoStart": false, "usagePing": false})");
    answer("screen=1 input=0");
    launch();
    ASSERT_TRUE(queue.runUntil([&] { return view.window && view.window->visible; }));
    EXPECT_FALSE(running());
    answer("screen=1 input=1");
    queue.advance(2);  // the window's poll sees everything allowed, but only the button goes on
    ASSERT_TRUE(queue.runUntil([&] { return view.window->shown.startButtonEnabled; }));
    EXPECT_TRUE(view.window->visible);
    EXPECT_FALSE(running());
    delegate->permissions().startNow();
    waitUntilRunning();
}

TEST_F(AppDelegateTest, WithoutAPermissionsWindowTheMinuteTickStartsTheServerOnceAllowed) {
    settings(R"({"usagePing": false})");
    answer("cause=screen-unreadable :3\nscreen=0 input=1");
    view.windows = false;
    launch();
    waitForIdle();
    ASSERT_EQ(view.notices.size(), 1u);
    EXPECT_EQ(view.notices[0], "The display :3 is open, but its screen cannot be read. Velmora shares X11 desktops whose "
                               "screen may be read by their own user. The server was not started (checking again every "
                               "minute)");
    EXPECT_TRUE(delegate->startRetryPending());

    // Still missing a minute later: checked again, but not reported again.
    queue.advance(60);
    waitForIdle();
    EXPECT_FALSE(running());
    EXPECT_EQ(view.notices.size(), 1u);
    EXPECT_TRUE(delegate->startRetryPending());

    answer("screen=1 input=1");
    queue.advance(60);
    waitUntilRunning();
    EXPECT_FALSE(delegate->startRetryPending());
}

TEST_F(AppDelegateTest, TestConnectionMakesNoCheckWhileStoppedAndCopiesTheFirstAddress) {
    test::HttpServer service;
    service.answer(200, "203.0.113.7\n");
    test::ScopedEnv serviceURL{"VELMORA_SERVICE_URL", service.baseURL()};
    const int port = test::closedLoopbackPort();
    settings(R"({"autoStart": false, "usagePing": false, "port": )" + std::to_string(port) + "}");
    launch();
    waitForIdle();

    delegate->perform(MenuAction::testConnection);
    ASSERT_TRUE(queue.runUntil([&] { return view.alerts.size() == 1; }));
    EXPECT_EQ(view.alerts[0].message, "Test Connection");
    EXPECT_EQ(view.alerts[0].buttons, (std::vector<std::string>{"OK", "Copy Address"}));
    EXPECT_EQ(view.alerts[0].informative, NetInfo::report(port, false, {}, false, {}, false));
    EXPECT_TRUE(service.requests().empty());

    EXPECT_TRUE(view.copied.empty());  // "OK"

    delegate->perform(MenuAction::toggleServer);
    waitUntilRunning();
    view.loginItem = true;
    view.alertAnswer = 1;  // "Copy Address"
    delegate->perform(MenuAction::testConnection);
    ASSERT_TRUE(queue.runUntil([&] { return view.alerts.size() == 2; }, 20));
    const std::string& report = view.alerts[1].informative;
    // The stand-in server listens nowhere.
    EXPECT_EQ(report.rfind("The server says it is running but nothing answers on port " + std::to_string(port) +
                               ". Check the log.\n",
                           0),
              0u)
        << report;
    EXPECT_NE(report.find("Your public address is 203.0.113.7."), std::string::npos) << report;
    EXPECT_EQ(report.find("Turn on"), std::string::npos);
    auto addresses = NetInfo::localAddresses();
    std::vector<std::string> expected;
    if (!addresses.empty()) expected.push_back(addresses.front().ip + ":" + std::to_string(port));
    EXPECT_EQ(view.copied, expected);
}

TEST_F(AppDelegateTest, CopyDiagnosticsProbesCopiesARedactedReportAndRestoresTheStatusLine) {
    settings(R"({"autoStart": false, "usagePing": false})");
    answer("screen=1 input=0");
    launch();
    waitForIdle();
    writeFile(platform::logFilePath(), "env MAC_SHADOW_NLA=anna:0123456789abcdef0123456789abcdef\n");

    delegate->perform(MenuAction::copyDiagnostics);
    ASSERT_TRUE(queue.runUntil([&] { return !view.copied.empty(); }));
    const std::string& report = view.copied.front();
    EXPECT_EQ(report.rfind("Velmora " + appVersion() + "\n", 0), 0u) << report;
    EXPECT_NE(report.find("\nPermission " + platform::say(platform::words::screenPermission) + ": granted\nPermission " +
                              platform::say(platform::words::inputPermission) + ": missing\n"),
              std::string::npos)
        << report;
    EXPECT_NE(report.find("env [removed]"), std::string::npos) << report;
    EXPECT_EQ(report.find("0123456789abcdef"), std::string::npos);
    EXPECT_EQ(view.statusLine, "Diagnostics copied. Paste them into your email.");
    queue.advance(3.9);
    EXPECT_EQ(view.statusLine, "Diagnostics copied. Paste them into your email.");
    queue.advance(0.2);
    EXPECT_EQ(view.statusLine, "Stopped");
}

TEST_F(AppDelegateTest, ShowLogOpensTheLogAsAFileURL) {
    test::ScopedEnv state{"XDG_STATE_HOME", home.path() + "/my state"};
    settings(R"({"autoStart": false, "usagePing": false})");
    launch();
    waitForIdle();
    delegate->perform(MenuAction::showLog);
    ASSERT_EQ(view.opened.size(), 1u);
    EXPECT_EQ(view.opened[0], "file://" + home.path() + "/my%20state/velmora/Velmora.log");
}

}  // namespace
