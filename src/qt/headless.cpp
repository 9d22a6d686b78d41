#include "qt/headless.h"

#include "app/app_delegate.h"
#include "app/console_view.h"
#include "platform/defaults_store.h"
#include "platform/instance_lock.h"
#include "platform/paths.h"
#include "qt/instance_channel.h"
#include "qt/qt_main_queue.h"
#include "qt/signal_watch.h"

#include <QCoreApplication>

#include <cstdio>

namespace velmora {

std::string alreadyRunningText() {
    auto pid = platform::InstanceLock::holderPid();
    return "Velmora is already running" + (pid ? " (pid " + std::to_string(*pid) + ")" : std::string());
}

int runHeadless(int argc, char** argv) {
    QCoreApplication app(argc, argv);
    auto lock = platform::InstanceLock::acquire();
    if (!lock) {
        std::fprintf(stderr, "velmora: %s; not starting a second one\n", alreadyRunningText().c_str());
        return 1;
    }
    ConsoleView console([] { QCoreApplication::quit(); });
    std::shared_ptr<AppDelegate> delegate;
    // Early, so that a signal during start-up still stops the server once the loop runs.
    auto signalWatch = SignalWatch::install([&delegate] {
        if (delegate) delegate->quit();
    });
    if (!signalWatch) {
        std::fputs("velmora: cannot watch for SIGTERM\n", stderr);
        return 1;
    }
    InstanceChannel channel([&delegate] {
        if (delegate) delegate->openSettings();
    });

    platform::makeDirectories(platform::logDirectory());
    delegate = AppDelegate::create(std::make_shared<QtMainQueue>(), platform::DefaultsStore(), console, console);
    delegate->applicationDidFinishLaunching();
    int code = QCoreApplication::exec();
    delegate->applicationWillTerminate();
    return code;
}

}  // namespace velmora
