#pragma once
// How a second launch reaches the running Velmora: a local socket beside the instance lock. The
// running one listens; a second one sends "settings" and leaves.

#include <QLocalServer>

#include <functional>
#include <memory>

namespace velmora {

class InstanceChannel {
public:
    // Listens (replacing a socket left by a crashed run: the caller holds the lock). Each request
    // calls `openSettings` on the main thread.
    explicit InstanceChannel(std::function<void()> openSettings);
    ~InstanceChannel();
    bool listening() const { return server_->isListening(); }

    // From a second launch: asks the running Velmora to open its settings window; false when it
    // could not be reached within a few seconds.
    static bool askToOpenSettings();

private:
    std::function<void()> openSettings_;
    std::unique_ptr<QLocalServer> server_;
};

}  // namespace velmora
