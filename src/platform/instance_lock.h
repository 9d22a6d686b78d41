#pragma once
// One Velmora per user: an advisory lock on a file in the runtime folder. The system drops the lock
// with the process, so one left by a crashed Velmora never blocks the next start.

#include <optional>
#include <string>

namespace velmora::platform {

class InstanceLock {
public:
    // Takes the lock; absent when another process holds it (or the folder cannot be made).
    static std::optional<InstanceLock> acquire();
    // The pid written by the holder, when it can be read.
    static std::optional<int> holderPid();
    // Where the running Velmora listens for a second launch.
    static std::string socketPath();

    InstanceLock(InstanceLock&& other) noexcept : fd_(other.fd_) { other.fd_ = -1; }
    InstanceLock& operator=(InstanceLock&&) = delete;
    InstanceLock(const InstanceLock&) = delete;
    ~InstanceLock();

private:
    explicit InstanceLock(int fd) : fd_(fd) {}
    int fd_;
};

}  // namespace velmora::platform
