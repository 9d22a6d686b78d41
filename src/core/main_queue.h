#pragma once
// The main thread's queue: every piece of application state is touched only from work run here.
// The application runs it on Qt's event loop; tests use ManualQueue with a virtual clock.

#include <atomic>
#include <functional>
#include <memory>

namespace velmora {

// A one-shot timer handed out by MainQueue::postAfter. Cancelling it (from any thread) guarantees
// that its work does not start afterwards; cancelling a timer that already fired does nothing.
class Timer {
public:
    void cancel() { cancelled_.store(true); }
    bool cancelled() const { return cancelled_.load(); }
    bool fired() const { return fired_.load(); }
    bool pending() const { return !cancelled() && !fired(); }

    // For queue implementations: marks the timer fired and says whether its work should run.
    bool claimFire() { return !cancelled_.load() && !fired_.exchange(true); }

private:
    std::atomic<bool> cancelled_{false};
    std::atomic<bool> fired_{false};
};

using TimerHandle = std::shared_ptr<Timer>;

class MainQueue {
public:
    virtual ~MainQueue() = default;

    // Runs `work` on the main thread after everything posted before it. Callable from any thread.
    virtual void post(std::function<void()> work) = 0;

    // Runs `work` on the main thread once `seconds` have passed on this queue's clock, unless the
    // returned timer is cancelled first. Called on the main thread.
    virtual TimerHandle postAfter(double seconds, std::function<void()> work) = 0;

    // Seconds on this queue's monotonic clock (virtual in tests).
    virtual double now() const = 0;
};

}  // namespace velmora
