#include "qt/tray_app.h"

#include "app/app_delegate.h"
#include "platform/instance_lock.h"
#include "platform/instance_socket.h"
#include "platform/system_info.h"
#include "qt/application_loop.h"
#include "qt/headless.h"
#include "qt/qt_desktop.h"
#include "qt/tray_view.h"

#include <QApplication>

#include <cstdio>

namespace velmora {

int runTray(int argc, char** argv) {
    std::string problem;
    auto lock = platform::InstanceLock::acquire(problem);
    if (!lock && !problem.empty()) return refuseRuntimeFolder(problem);
    if (!lock) {
        // A second launch needs no display: it only speaks to the first one.
        if (platform::askRunningVelmora(platform::InstanceRequest::settings, 3.0) == "ok") return 0;
        std::fprintf(stderr, "velmora: %s but does not answer\n", alreadyRunningText().c_str());
        return 1;
    }
    if (!platform::graphicalSessionAvailable()) {
        std::fputs("velmora: no display to show the menu on; use \"velmora --headless\" to run the server without one\n",
                   stderr);
        return 2;
    }

    QApplication app(argc, argv);
    QApplication::setApplicationName(QStringLiteral("Velmora"));
    // No display name of its own: Qt would append it to every window's title.
    QGuiApplication::setDesktopFileName(QStringLiteral("velmora"));
    QApplication::setWindowIcon(TrayView::statusIcon(false));

    std::shared_ptr<AppDelegate> delegate;
    QtDesktop desktop;
    TrayView view([&delegate](MenuAction action) {
        if (delegate) delegate->perform(action);
    });
    return runApplication(view, desktop, delegate);
}

}  // namespace velmora
