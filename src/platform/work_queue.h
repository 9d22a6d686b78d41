#pragma once
// Background queues: a serial queue (one worker, FIFO; the permission service's "velmora.perms")
// and the global queue for independent background work (connect test, public address, client
// count, diagnostics probe). Their threads carry the queue's label as their name.

#include <condition_variable>
#include <deque>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace velmora::platform {

class WorkQueue {
public:
    // `threads` workers named `label`; one worker makes the queue serial.
    WorkQueue(std::string label, unsigned threads);
    ~WorkQueue();  // runs what was queued, then joins the workers
    WorkQueue(const WorkQueue&) = delete;
    WorkQueue& operator=(const WorkQueue&) = delete;

    void async(std::function<void()> work);
    // Blocks until everything queued before this call has finished.
    void drain();
    const std::string& label() const { return label_; }

private:
    void workerLoop();

    std::string label_;
    std::mutex mutex_;
    std::condition_variable wake_;
    std::condition_variable idle_;
    std::deque<std::function<void()>> queue_;
    unsigned busy_ = 0;
    bool stopping_ = false;
    std::vector<std::thread> workers_;
};

class SerialQueue : public WorkQueue {
public:
    explicit SerialQueue(std::string label) : WorkQueue(std::move(label), 1) {}
};

// The process-wide queue for background work; it lives until the process ends.
WorkQueue& globalQueue();

}  // namespace velmora::platform
