#pragma once
// A MainQueue for tests: nothing runs until the test says so, and time only moves when the test
// advances the virtual clock. Work may be posted from other threads (process watchers, workers);
// runUntil() waits for it in real time.

#include "core/main_queue.h"

#include <condition_variable>
#include <cstdint>
#include <deque>
#include <map>
#include <mutex>
#include <utility>

namespace velmora {

class ManualQueue final : public MainQueue {
public:
    explicit ManualQueue(double startSeconds = 1000.0) : now_(startSeconds) {}
    ~ManualQueue() override { close(); }  // before the members posting needs

    void post(std::function<void()> work) override;
    TimerHandle postAfter(double seconds, std::function<void()> work) override;
    double now() const override;

    // Runs posted work, including work posted while draining, until none is left. Returns how many
    // items ran. Timers do not fire here.
    std::size_t runPending();

    // Moves the clock forward by `seconds`, firing due timers in due order (each at its own due
    // time) and draining posted work before and after each timer.
    void advance(double seconds);

    // Fires timers and moves the clock to the next due one: useful to step through back-offs.
    // Returns false when no timer is pending.
    bool advanceToNextTimer();

    // Drains posted work, waiting in real time for more from other threads, until `done` holds or
    // `realTimeoutSeconds` pass. Returns whether `done` held.
    bool runUntil(const std::function<bool()>& done, double realTimeoutSeconds = 10.0);

    std::size_t pendingTimers() const;
    // Seconds from now to the earliest pending timer, or a negative number when there is none.
    double secondsToNextTimer() const;

private:
    struct Scheduled {
        TimerHandle timer;
        std::function<void()> work;
    };
    bool popPosted(std::function<void()>& out);
    void dropCancelledLocked();

    mutable std::mutex mutex_;
    std::condition_variable posted_;
    std::deque<std::function<void()>> queue_;
    // Keyed by (due time, sequence) so that timers due at the same moment fire in the order made.
    std::map<std::pair<double, std::uint64_t>, Scheduled> timers_;
    std::uint64_t sequence_ = 0;
    double now_;
};

}  // namespace velmora
