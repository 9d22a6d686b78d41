#include "app/headless.h"

#include "app/qt_main_queue.h"
#include "core/text.h"
#include "permissions/helper_perms.h"
#include "platform/defaults_store.h"
#include "platform/paths.h"
#include "process/server_supervisor.h"
#include "process/spawn.h"
#include "settings/keys.h"
#include "settings/settings_store.h"

#include <QCoreApplication>
#include <QSocketNotifier>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <fcntl.h>
#include <unistd.h>

namespace velmora {

namespace {

int signalPipe[2] = {-1, -1};

// The handler only writes a byte; the event loop does the rest.
void onSignal(int) {
    int saved = errno;
    char byte = 1;
    [[maybe_unused]] auto ignored = ::write(signalPipe[1], &byte, 1);
    errno = saved;
}

bool installSignalPipe() {
    if (::pipe(signalPipe) != 0) return false;
    for (int fd : signalPipe) {
        ::fcntl(fd, F_SETFD, FD_CLOEXEC);
        ::fcntl(fd, F_SETFL, ::fcntl(fd, F_GETFL) | O_NONBLOCK);
    }
    struct sigaction action{};
    action.sa_handler = onSignal;
    sigemptyset(&action.sa_mask);
    action.sa_flags = SA_RESTART;
    ::sigaction(SIGTERM, &action, nullptr);
    ::sigaction(SIGINT, &action, nullptr);
    return true;
}

// Where the tray application would open its permissions window.
void reportMissingPermissions(const PermStatus& status) {
    std::string message = "Velmora Server lacks permission (" + text::join(status.missingServices(), ", ") +
                          "): it could not read the X display or found no XTEST; the server was not started";
    HelperPerms::log(message);
    std::fprintf(stderr, "velmora: %s\n", message.c_str());
}

}  // namespace

int runHeadless(int argc, char** argv) {
    QCoreApplication app(argc, argv);
    // Early, so that a SIGTERM during start-up still stops the server cleanly once the loop runs.
    if (!installSignalPipe()) {
        std::fputs("velmora: cannot watch for SIGTERM\n", stderr);
        return 1;
    }
    auto queue = std::make_shared<QtMainQueue>();

    platform::DefaultsStore store;
    platform::makeDirectories(platform::logDirectory());
    registerDefaultsAndMigrate(store);

    auto perms = HelperPerms::create(queue, store);
    auto supervisor = ServerSupervisor::create(queue, perms, store);

    // The menu would show these; here each change of state gets one line.
    std::string shown;
    std::weak_ptr<ServerSupervisor> weakSupervisor = supervisor;
    supervisor->refreshMenu = [weakSupervisor, &shown] {
        auto self = weakSupervisor.lock();
        if (!self) return;
        std::string state = self->running() ? "Velmora Server running (pid " + std::to_string(self->task()->pid()) + ")"
                                            : self->idleStatusLine();
        if (state == shown) return;
        shown = state;
        std::fprintf(stderr, "velmora: %s\n", state.c_str());
    };
    std::weak_ptr<HelperPerms> weakPerms = perms;
    supervisor->showPermissions = [weakPerms](std::function<void()>) {
        if (auto self = weakPerms.lock(); self && self->last()) reportMissingPermissions(*self->last());
    };

    perms->cleanUpLegacyEntriesOnce();
    int stopped = Spawn::stopLeftovers();
    if (stopped >= 1)
        HelperPerms::log("stopped " + std::to_string(stopped) +
                         " Velmora Server left over from an earlier run (it held the port)");

    QSocketNotifier notifier(signalPipe[0], QSocketNotifier::Read);
    QObject::connect(&notifier, &QSocketNotifier::activated, [&] {
        char bytes[16];
        while (::read(signalPipe[0], bytes, sizeof bytes) > 0) {
        }
        notifier.setEnabled(false);
        supervisor->stopServer();
        app.quit();
    });

    if (store.boolean(Key::autoStart)) {
        supervisor->startServer();
    } else {
        perms->check([weakPerms](std::optional<PermStatus> status) {
            if (weakPerms.expired()) return;
            if (status && !status->allOK()) reportMissingPermissions(*status);
        });
    }

    int code = app.exec();
    supervisor->stopServer();  // already done on a signal; a no-op then
    return code;
}

}  // namespace velmora
