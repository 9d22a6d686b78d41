#include "qt/application_loop.h"

#include "platform/defaults_store.h"
#include "platform/paths.h"
#include "qt/instance_channel.h"
#include "qt/qt_main_queue.h"
#include "qt/signal_watch.h"

#include <QCoreApplication>

#include <cstdio>

namespace velmora {

int runApplication(AppView& view, Desktop& desktop, std::shared_ptr<AppDelegate>& delegate,
                   const std::function<void(AppDelegate&)>& prepare) {
    // Early, so that a signal (a logout) during start-up still stops the server once the loop runs.
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
    delegate = AppDelegate::create(std::make_shared<QtMainQueue>(), platform::DefaultsStore(), view, desktop);
    if (prepare) prepare(*delegate);
    delegate->applicationDidFinishLaunching();
    int code = QCoreApplication::exec();
    delegate->applicationWillTerminate();
    // Gone while the views and the Qt application it refers to still exist.
    delegate.reset();
    return code;
}

}  // namespace velmora
