// The real permissions window on Xvfb, opened by the application object when a start finds a
// permission missing, with a shell script as the server and the virtual clock driving the poll.

#include "app/app_delegate.h"
#include "core/manual_queue.h"
#include "platform/paths.h"
#include "qt/permissions_window.h"
#include "qt/tray_view.h"
#include "support/e2e_harness.h"
#include "support/scoped_env.h"
#include "support/temp_home.h"

#include <gtest/gtest.h>

#include <QApplication>
#include <QWindow>

using namespace velmora;
using namespace velmora::test;

namespace {

class RecordingDesktop final : public Desktop {
public:
    int runAlert(const Alert&) override { return 0; }
    void copyText(const std::string&) override {}
    void openURL(const std::string& url) override { opened.push_back(url); }
    bool opensAtLogin() override { return false; }
    std::optional<std::string> setOpensAtLogin(bool) override { return std::nullopt; }
    void terminate() override {}

    std::vector<std::string> opened;
};

// Runs Qt's events and the main queue's work until `done` holds; probes answer in real time.
bool pumpUntil(ManualQueue& queue, const std::function<bool()>& done) {
    return eventually([&] {
        QCoreApplication::processEvents(QEventLoop::AllEvents, 10);
        return queue.runUntil(done, 0.01);
    }, 30);
}

PermissionsWindow* findWindow() {
    for (QWidget* widget : QApplication::topLevelWidgets())
        if (auto* window = dynamic_cast<PermissionsWindow*>(widget)) return window;
    return nullptr;
}

QString textOf(QWidget* window, const char* name) {
    auto* label = window->findChild<QLabel*>(QString::fromLatin1(name));
    return label ? label->text() : QStringLiteral("(none)");
}

}  // namespace

TEST(PermissionsWindowTest, OpensForAMissingPermissionAndStartsTheServerOnceAllIsAllowed) {
    TempHome home;
    test::Xvfb xvfb;
    if (!xvfb.running()) GTEST_SKIP() << "Xvfb could not be started";
    ScopedEnv display("DISPLAY", xvfb.display());
    ScopedEnv wayland("WAYLAND_DISPLAY", std::nullopt);
    ScopedEnv platformName("QT_QPA_PLATFORM", "xcb");
    platform::makeDirectories(platform::logDirectory());

    const std::string answer = home.path() + "/answer", starts = home.path() + "/starts";
    writeFile(answer, "cause=no-xtest " + xvfb.display() + "\nscreen=1 input=0\n");
    ScopedEnv korven("KORVEN_CLI", test::writeScript(home.path() + "/server",
                                                     "if [ -n \"$MAC_SHADOW_PERMS\" ]; then cat '" + answer +
                                                         "'; exit 0; fi\necho started >> '" + starts + "'\nexec sleep 1000\n"));

    int argc = 1;
    char* argv[] = {const_cast<char*>("qt_tests"), nullptr};
    QApplication app(argc, argv);
    ManualQueue queue;
    RecordingDesktop desktop;
    std::shared_ptr<AppDelegate> delegate;
    TrayView view([&delegate](MenuAction action) {
        if (delegate) delegate->perform(action);
    });
    delegate = AppDelegate::create({.mainQueue = queue, .view = view, .desktop = desktop,
                                    .bundleRoot = home.path() + "/no-prefix", .stopLeftovers = [] { return 0; }});
    // The server is stopped however the test ends.
    std::unique_ptr<AppDelegate, void (*)(AppDelegate*)> stopAtEnd(delegate.get(),
                                                                   [](AppDelegate* app) { app->applicationWillTerminate(); });

    // "autoStart" is on: the start's check finds the input missing and the window opens.
    delegate->applicationDidFinishLaunching();
    PermissionsWindow* window = nullptr;
    ASSERT_TRUE(pumpUntil(queue, [&] {
        window = findWindow();
        return window && window->isVisible() && window->windowHandle()->isExposed() &&
               textOf(window, "summary").contains("XTEST");
    }));
    // On an X11 desktop nothing can be switched on: the window names the cause and opens no settings.
    EXPECT_EQ(window->windowTitle(), QStringLiteral("What Velmora Server needs from this desktop"));
    EXPECT_FALSE(window->findChild<QPushButton*>(QStringLiteral("inputButton"))->isVisible());
    EXPECT_EQ(textOf(window, "screenStatus"), QStringLiteral("\u2713 Works"));
    EXPECT_EQ(textOf(window, "inputStatus"), QStringLiteral("\u2717 Does not work yet"));
    EXPECT_TRUE(textOf(window, "summary").startsWith(QString::fromStdString("The display " + xvfb.display() +
                                                                            " has no XTEST extension")));
    EXPECT_TRUE(desktop.opened.empty());

    // Switched on: the next poll closes the window and the server starts, once: a stray poll in the
    // next 10 s that started it again would show in the count at the end.
    writeFile(answer, "screen=1 input=1\n");
    queue.advance(PermissionsController::pollSeconds);
    ASSERT_TRUE(pumpUntil(queue, [&] { return !window->isVisible() && readFile(starts) == "started\n"; }));
    queue.advance(10);

    // The menu's "Check Permissions…": the same window, continuing only by its button.
    delegate->perform(MenuAction::checkPermissions);
    ASSERT_TRUE(pumpUntil(queue, [&] {
        return window->isVisible() && textOf(window, "summary").startsWith("Everything works");
    }));
    window->findChild<QPushButton*>(QStringLiteral("startButton"))->click();  // a disabled one does nothing
    EXPECT_FALSE(window->isVisible());

    // "Repair Permissions" with the server running: it stops, and with everything allowed the
    // window closes after its first check and the server starts again, once.
    delegate->perform(MenuAction::repairPermissions);
    ASSERT_TRUE(pumpUntil(queue, [&] { return !window->isVisible() && readFile(starts) == "started\nstarted\n"; }));
}
