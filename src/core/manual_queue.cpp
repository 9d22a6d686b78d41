#include "core/manual_queue.h"

#include <chrono>

namespace velmora {

void ManualQueue::post(std::function<void()> work) {
    {
        std::lock_guard lock(mutex_);
        queue_.push_back(std::move(work));
    }
    posted_.notify_all();
}

TimerHandle ManualQueue::postAfter(double seconds, std::function<void()> work) {
    auto timer = std::make_shared<Timer>();
    std::lock_guard lock(mutex_);
    timers_.emplace(std::make_pair(now_ + (seconds > 0 ? seconds : 0), sequence_++),
                    Scheduled{timer, std::move(work)});
    return timer;
}

double ManualQueue::now() const {
    std::lock_guard lock(mutex_);
    return now_;
}

bool ManualQueue::popPosted(std::function<void()>& out) {
    std::lock_guard lock(mutex_);
    if (queue_.empty()) return false;
    out = std::move(queue_.front());
    queue_.pop_front();
    return true;
}

std::size_t ManualQueue::runPending() {
    std::size_t ran = 0;
    std::function<void()> work;
    while (popPosted(work)) {
        work();
        ++ran;
    }
    return ran;
}

void ManualQueue::dropCancelledLocked() {
    for (auto it = timers_.begin(); it != timers_.end();) {
        if (it->second.timer->cancelled()) it = timers_.erase(it);
        else ++it;
    }
}

void ManualQueue::advance(double seconds) {
    double target;
    {
        std::lock_guard lock(mutex_);
        target = now_ + seconds;
    }
    runPending();
    for (;;) {
        Scheduled next;
        {
            std::lock_guard lock(mutex_);
            dropCancelledLocked();
            if (timers_.empty() || timers_.begin()->first.first > target) break;
            auto it = timers_.begin();
            now_ = it->first.first;
            next = std::move(it->second);
            timers_.erase(it);
        }
        if (next.timer->claimFire()) next.work();
        runPending();
    }
    {
        std::lock_guard lock(mutex_);
        if (now_ < target) now_ = target;
    }
    runPending();
}

bool ManualQueue::advanceToNextTimer() {
    double wait = secondsToNextTimer();
    if (wait < 0) return false;
    advance(wait);
    return true;
}

bool ManualQueue::runUntil(const std::function<bool()>& done, double realTimeoutSeconds) {
    auto deadline = std::chrono::steady_clock::now() +
                    std::chrono::duration_cast<std::chrono::steady_clock::duration>(
                        std::chrono::duration<double>(realTimeoutSeconds));
    for (;;) {
        runPending();
        if (done()) return true;
        std::unique_lock lock(mutex_);
        if (!posted_.wait_until(lock, deadline, [this] { return !queue_.empty(); })) {
            lock.unlock();
            runPending();
            return done();
        }
    }
}

std::size_t ManualQueue::pendingTimers() const {
    std::lock_guard lock(mutex_);
    std::size_t count = 0;
    for (const auto& [key, scheduled] : timers_)
        if (scheduled.timer->pending()) ++count;
    return count;
}

double ManualQueue::secondsToNextTimer() const {
    std::lock_guard lock(mutex_);
    for (const auto& [key, scheduled] : timers_)
        if (scheduled.timer->pending()) return key.first - now_;
    return -1.0;
}

}  // namespace velmora
