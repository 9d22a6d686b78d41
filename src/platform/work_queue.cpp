#include "platform/work_queue.h"

#include "platform/task_pool.h"
#include "platform/thread_name.h"

namespace velmora::platform {

WorkQueue::WorkQueue(std::string label, unsigned threads) : label_(std::move(label)) {
    if (threads == 0) threads = 1;
    for (unsigned i = 0; i < threads; ++i) workers_.emplace_back([this] { workerLoop(); });
}

WorkQueue::~WorkQueue() {
    {
        std::lock_guard lock(mutex_);
        stopping_ = true;
    }
    wake_.notify_all();
    for (auto& worker : workers_) worker.join();
}

void WorkQueue::async(std::function<void()> work) {
    {
        std::lock_guard lock(mutex_);
        queue_.push_back(std::move(work));
    }
    wake_.notify_one();
}

void WorkQueue::drain() {
    std::unique_lock lock(mutex_);
    idle_.wait(lock, [this] { return queue_.empty() && busy_ == 0; });
}

void WorkQueue::workerLoop() {
    setCurrentThreadName(label_);
    std::unique_lock lock(mutex_);
    for (;;) {
        wake_.wait(lock, [this] { return stopping_ || !queue_.empty(); });
        if (queue_.empty()) return;  // stopping, and nothing left to run
        auto work = std::move(queue_.front());
        queue_.pop_front();
        ++busy_;
        lock.unlock();
        // Captures are released outside the lock, and inside the pool with whatever they autorelease.
        runInPool([&work] {
            work();
            work = nullptr;
        });
        lock.lock();
        --busy_;
        if (queue_.empty() && busy_ == 0) idle_.notify_all();
    }
}

WorkQueue& globalQueue() {
    // Deliberately never destroyed: background work may still be running while the process exits.
    static auto* queue = new WorkQueue("velmora.global", 4);
    return *queue;
}

}  // namespace velmora::platform
