#include "process/spawned_process.h"

#include "platform/thread_name.h"

#include <cerrno>
#include <chrono>
#include <csignal>
#include <string>
#include <sys/wait.h>

namespace velmora {

bool SpawnedProcess::isRunning() const {
    std::lock_guard guard(lock_);
    return !done_;
}

std::int32_t SpawnedProcess::rawStatus() const {
    std::lock_guard guard(lock_);
    return rawStatus_;
}

std::int32_t SpawnedProcess::exitCode() const {
    std::int32_t status = rawStatus();
    std::int32_t signal = status & 0x7f;
    if (signal != 0) return signal | 0x80;
    return (status >> 8) & 0xff;
}

bool SpawnedProcess::killedBySignal() const { return (rawStatus() & 0x7f) != 0; }

bool SpawnedProcess::waitExited(double seconds) {
    auto deadline = std::chrono::steady_clock::now() +
                    std::chrono::duration_cast<std::chrono::steady_clock::duration>(
                        std::chrono::duration<double>(seconds > 0 ? seconds : 0));
    std::unique_lock guard(exitedLock_);
    // Waiting leaves the latch open, so every later waiter passes at once too.
    return exitedSignal_.wait_until(guard, deadline, [this] { return exited_; });
}

bool SpawnedProcess::wait(double timeout) {
    if (!isRunning()) return true;
    return waitExited(timeout);
}

void SpawnedProcess::terminate(double grace) {
    if (!isRunning()) return;
    ::kill(pid_, SIGTERM);
    if (!isRunning()) return;
    if (waitExited(grace)) return;
    ::kill(pid_, SIGKILL);
    if (!isRunning()) return;
    waitExited(5.0);
}

void SpawnedProcess::watch(std::shared_ptr<SpawnedProcess> self, std::shared_ptr<MainQueueLink> mainQueue) {
    platform::setCurrentThreadName("wait " + std::to_string(self->pid_));
    int status = 0;
    while (::waitpid(self->pid_, &status, 0) < 0) {
        if (errno != EINTR) {
            status = 0;  // treated as a clean end: there is nothing left to wait for
            break;
        }
    }
    {
        std::lock_guard guard(self->lock_);
        self->rawStatus_ = status;
        self->done_ = true;
    }
    {
        std::lock_guard guard(self->exitedLock_);
        self->exited_ = true;
    }
    self->exitedSignal_.notify_all();
    if (mainQueue) {
        // The posted work holds the handle until onExit has run; this thread lets go of it here, so
        // whatever onExit holds is released on the main thread.
        mainQueue->post([self = std::move(self)] {
            if (self->onExit) self->onExit(*self);
        });
    }
}

}  // namespace velmora
