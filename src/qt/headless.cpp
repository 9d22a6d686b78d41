#include "qt/headless.h"

#include "app/app_delegate.h"
#include "app/console_view.h"
#include "platform/instance_lock.h"
#include "qt/application_loop.h"

#include <QCoreApplication>

#include <cstdio>

namespace velmora {

std::string alreadyRunningText() {
    auto pid = platform::InstanceLock::holderPid();
    return "Velmora is already running" + (pid ? " (pid " + std::to_string(*pid) + ")" : std::string());
}

int refuseRuntimeFolder(const std::string& problem) {
    std::fprintf(stderr, "velmora: not started: %s (Velmora keeps its lock and socket only in a folder of its own)\n",
                 problem.c_str());
    return 1;
}

int runHeadless(int argc, char** argv) {
    QCoreApplication app(argc, argv);
    std::string problem;
    auto lock = platform::InstanceLock::acquire(problem);
    if (!lock && !problem.empty()) return refuseRuntimeFolder(problem);
    if (!lock) {
        std::fprintf(stderr, "velmora: %s; not starting a second one\n", alreadyRunningText().c_str());
        return 1;
    }
    ConsoleView console([] { QCoreApplication::quit(); });
    std::shared_ptr<AppDelegate> delegate;
    return runApplication(console, console, delegate);
}

}  // namespace velmora
