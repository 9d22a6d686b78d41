#pragma once
// The main thread's queue: every piece of application state is touched only from work run here.
// The application runs it on Qt's event loop; tests use ManualQueue with a virtual clock.

#include <atomic>
#include <functional>
#include <memory>
#include <mutex>

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

class MainQueue;

// What background work (worker threads, process watchers) holds instead of the queue: posting
// through it reaches the queue while the queue is open and does nothing once it is closed, so work
// that finishes after the application quit never touches a queue that is gone. Shared; outlives
// the queue as long as anyone holds it.
class MainQueueLink {
public:
    explicit MainQueueLink(MainQueue* queue) : queue_(queue) {}

    // MainQueue::post while open; afterwards `work` is dropped (on the calling thread) and the
    // answer is false.
    bool post(std::function<void()> work);
    // Waits for a post in progress to finish, then lets none through.
    void close();
    bool isOpen() const;

private:
    mutable std::mutex mutex_;
    MainQueue* queue_;
};

class MainQueue {
public:
    MainQueue() : link_(std::make_shared<MainQueueLink>(this)) {}
    // Closes the link; a queue whose posting needs its own members must call close() in its own
    // destructor (or earlier, at quit), before those members go.
    virtual ~MainQueue() { close(); }
    MainQueue(const MainQueue&) = delete;
    MainQueue& operator=(const MainQueue&) = delete;

    // For background work: hold this, never the queue itself.
    std::shared_ptr<MainQueueLink> link() const { return link_; }
    // Ends posting through link(): call when the application quits, before its event loop or
    // this queue goes away. Work posted directly to the queue is not affected.
    void close() { link_->close(); }

    // Runs `work` on the main thread after everything posted before it. Callable from any thread.
    virtual void post(std::function<void()> work) = 0;

    // Runs `work` on the main thread once `seconds` have passed on this queue's clock, unless the
    // returned timer is cancelled first. Called on the main thread.
    virtual TimerHandle postAfter(double seconds, std::function<void()> work) = 0;

    // Seconds on this queue's monotonic clock (virtual in tests).
    virtual double now() const = 0;

private:
    std::shared_ptr<MainQueueLink> link_;
};

inline bool MainQueueLink::post(std::function<void()> work) {
    std::lock_guard lock(mutex_);
    if (!queue_) return false;
    queue_->post(std::move(work));
    return true;
}

inline void MainQueueLink::close() {
    std::lock_guard lock(mutex_);
    queue_ = nullptr;
}

inline bool MainQueueLink::isOpen() const {
    std::lock_guard lock(mutex_);
    return queue_ != nullptr;
}

}  // namespace velmora
