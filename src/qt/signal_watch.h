#pragma once
// SIGTERM, SIGINT and SIGHUP (the session's logout) turned into one call on the Qt event loop:
// the handler only writes a byte to a pipe that a socket notifier reads.

#include <QObject>
#include <QSocketNotifier>

#include <functional>
#include <memory>

namespace velmora {

class SignalWatch {
public:
    // Installs the handlers; `onSignal` runs once, on the main thread, for the first signal.
    // Absent when the pipe cannot be made.
    static std::unique_ptr<SignalWatch> install(std::function<void()> onSignal);
    ~SignalWatch();

private:
    explicit SignalWatch(std::function<void()> onSignal);
    std::function<void()> onSignal_;
    std::unique_ptr<QSocketNotifier> notifier_;
};

}  // namespace velmora
