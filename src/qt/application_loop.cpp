#include "qt/application_loop.h"

#include "platform/instance_socket.h"
#include "platform/paths.h"
#include "qt/instance_channel.h"
#include "qt/qt_main_queue.h"
#include "qt/signal_watch.h"

#include <QCoreApplication>

#include <cstdio>

namespace velmora {

int runApplication(AppView& view, Desktop& desktop, std::shared_ptr<AppDelegate>& delegate) {
    // Early, so that a signal (a logout) during start-up still stops the server once the loop runs.
    auto signalWatch = SignalWatch::install([&delegate] {
        if (delegate) delegate->quit();
    });
    if (!signalWatch) {
        std::fputs("velmora: cannot watch for SIGTERM\n", stderr);
        return 1;
    }
    InstanceChannel channel([&delegate](const std::string& request) -> std::string {
        namespace Request = platform::InstanceRequest;
        if (!delegate) return "starting";
        if (request == Request::settings) {
            delegate->openSettings();
            return "ok";
        }
        if (request == Request::loginChanged) {
            // The login is read afresh at each launch: only a running server holds an old one.
            if (!delegate->supervisor()->running()) return "unchanged";
            delegate->supervisor()->restartServer();
            return "restarted";
        }
        return "unknown request";
    });

    platform::makeDirectories(platform::logDirectory());
    QtMainQueue mainQueue;
    delegate = AppDelegate::create({.mainQueue = mainQueue, .view = view, .desktop = desktop});
    delegate->applicationDidFinishLaunching();
    int code = QCoreApplication::exec();
    delegate->applicationWillTerminate();
    // Gone while the views and the Qt application it refers to still exist.
    delegate.reset();
    return code;
}

}  // namespace velmora
