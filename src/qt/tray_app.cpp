#include "qt/tray_app.h"

#include "app/app_delegate.h"
#include "platform/defaults_store.h"
#include "platform/instance_lock.h"
#include "platform/paths.h"
#include "qt/headless.h"
#include "qt/instance_channel.h"
#include "qt/qt_desktop.h"
#include "qt/qt_main_queue.h"
#include "qt/settings_window.h"
#include "qt/signal_watch.h"
#include "qt/tray_view.h"

#include <QApplication>

#include <cstdio>
#include <cstdlib>

namespace velmora {

namespace {

bool haveDisplay() {
    for (const char* name : {"DISPLAY", "WAYLAND_DISPLAY"})
        if (const char* value = std::getenv(name); value && value[0]) return true;
    // An explicit platform (offscreen, vnc) needs no display variable.
    const char* platform = std::getenv("QT_QPA_PLATFORM");
    return platform && platform[0];
}

}  // namespace

int runTray(int argc, char** argv) {
    auto lock = platform::InstanceLock::acquire();
    if (!lock) {
        // A second launch needs no display: it only speaks to the first one.
        QCoreApplication app(argc, argv);
        if (InstanceChannel::askToOpenSettings()) return 0;
        std::fprintf(stderr, "velmora: %s but does not answer\n", alreadyRunningText().c_str());
        return 1;
    }
    if (!haveDisplay()) {
        std::fputs("velmora: no display to show the menu on; use \"velmora --headless\" to run the server without one\n",
                   stderr);
        return 2;
    }

    QApplication app(argc, argv);
    QApplication::setApplicationName(QStringLiteral("Velmora"));
    QApplication::setApplicationDisplayName(QStringLiteral("Velmora"));
    QGuiApplication::setDesktopFileName(QStringLiteral("velmora"));
    QApplication::setWindowIcon(TrayView::statusIcon(false));

    std::shared_ptr<AppDelegate> delegate;
    QtDesktop desktop;
    TrayView view([&delegate](MenuAction action) {
        if (delegate) delegate->perform(action);
    });
    // Early, so that a logout during start-up still stops the server once the loop runs.
    auto signalWatch = SignalWatch::install([&delegate] {
        if (delegate) delegate->quit();
    });
    std::unique_ptr<SettingsWindow> settingsWindow;
    view.settingsWindow = [&delegate, &settingsWindow] {
        if (!settingsWindow) settingsWindow = std::make_unique<SettingsWindow>(delegate->settingsForm());
        settingsWindow->open();
    };
    InstanceChannel channel([&delegate] {
        if (delegate) delegate->openSettings();
    });

    platform::makeDirectories(platform::logDirectory());
    delegate = AppDelegate::create(std::make_shared<QtMainQueue>(), platform::DefaultsStore(), view, desktop);
    delegate->applicationDidFinishLaunching();
    int code = QApplication::exec();
    delegate->applicationWillTerminate();
    return code;
}

}  // namespace velmora
