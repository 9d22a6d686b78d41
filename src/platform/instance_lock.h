#pragma once
// One Velmora per user: an advisory lock on a file in a private runtime folder. The system drops the
// lock with the process, so one left by a crashed Velmora never blocks the next start.

#include "platform/paths.h"

#include <optional>
#include <string>
#include <sys/types.h>

namespace velmora::platform {

// Opens the runtime `folder`, made (0700) when missing. It must be a real folder, not a symbolic
// link, owned by `owner`; a mode looser than 0700 is tightened. In /tmp another user may have made
// it first to plant links or to read and replace what is kept there. The descriptor, or -1 with
// `problem` naming the path and what is wrong with it.
int openPrivateFolder(const std::string& folder, uid_t owner, std::string& problem);

class InstanceLock {
public:
    // Takes the lock in `folder`. Absent when another process holds it (`problem` stays empty), or
    // when the folder or the lock file is not safe to use (`problem` says which path and why).
    static std::optional<InstanceLock> acquire(std::string& problem, const std::string& folder = runtimeDirectory());
    // The pid written by the holder, when it can be read.
    static std::optional<int> holderPid();

    InstanceLock(InstanceLock&& other) noexcept : fd_(other.fd_) { other.fd_ = -1; }
    InstanceLock& operator=(InstanceLock&&) = delete;
    InstanceLock(const InstanceLock&) = delete;
    ~InstanceLock();

private:
    explicit InstanceLock(int fd) : fd_(fd) {}
    int fd_;
};

}  // namespace velmora::platform
