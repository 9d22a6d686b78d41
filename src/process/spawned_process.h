#pragma once
// A running child started by Spawn::start. A watcher thread ("wait <pid>") reaps it and hands its
// end to the main queue, where onExit runs. The watcher keeps the handle alive until then.

#include "core/main_queue.h"

#include <condition_variable>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <sys/types.h>

namespace velmora {

class SpawnedProcess : public std::enable_shared_from_this<SpawnedProcess> {
public:
    pid_t pid() const { return pid_; }
    // True when the child was started responsible for itself.
    bool disclaimed() const { return disclaimed_; }

    bool isRunning() const;
    // 128 + signal when the child died of a signal, else its exit status; 0 while running.
    std::int32_t exitCode() const;
    bool killedBySignal() const;
    // The wait status word as waitpid gave it; 0 while running.
    std::int32_t rawStatus() const;

    // True when the child has ended, at once or within `timeout` seconds; false on time-out.
    // Any number of threads may wait, before or after the end.
    bool wait(double timeout);

    // SIGTERM, then SIGKILL once `grace` seconds pass, then at most 5 more seconds of waiting.
    // Blocks the caller; sends nothing to a child that has already ended.
    void terminate(double grace = 20.0);

    // Set and read on the main thread only. Called there once the child has ended; read when that
    // work runs, so setting it right after start() never misses the end. Never called when the
    // process was started without a main queue.
    std::function<void(SpawnedProcess&)> onExit;

    SpawnedProcess(const SpawnedProcess&) = delete;
    SpawnedProcess& operator=(const SpawnedProcess&) = delete;

private:
    friend struct SpawnAccess;
    SpawnedProcess(pid_t pid, bool disclaimed) : pid_(pid), disclaimed_(disclaimed) {}

    // The watcher's side: reap, record, open the latch, post the end.
    static void watch(std::shared_ptr<SpawnedProcess> self, std::shared_ptr<MainQueueLink> mainQueue);
    // Waits for the latch until `seconds` pass.
    bool waitExited(double seconds);

    const pid_t pid_;
    const bool disclaimed_;

    mutable std::mutex lock_;  // guards done_ and rawStatus_
    bool done_ = false;
    std::int32_t rawStatus_ = 0;

    // The latch: opened once by the watcher, passed by every later waiter.
    std::mutex exitedLock_;
    std::condition_variable exitedSignal_;
    bool exited_ = false;
};

}  // namespace velmora
