#include "platform/instance_lock.h"

#include "platform/paths.h"

#include <charconv>
#include <fcntl.h>
#include <string>
#include <sys/file.h>
#include <unistd.h>

namespace velmora::platform {

namespace {

std::string lockPath() { return runtimeDirectory() + "/velmora.lock"; }

}  // namespace

std::optional<InstanceLock> InstanceLock::acquire() {
    if (!makeDirectories(runtimeDirectory())) return std::nullopt;
    int fd = ::open(lockPath().c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
    if (fd < 0) return std::nullopt;
    if (::flock(fd, LOCK_EX | LOCK_NB) != 0) {
        ::close(fd);
        return std::nullopt;
    }
    std::string pid = std::to_string(::getpid()) + "\n";
    // Only informative (a second launch names the first); the lock itself is what counts.
    [[maybe_unused]] bool named = ::ftruncate(fd, 0) == 0 && ::pwrite(fd, pid.data(), pid.size(), 0) > 0;
    return InstanceLock(fd);
}

InstanceLock::~InstanceLock() {
    if (fd_ >= 0) ::close(fd_);
}

std::optional<int> InstanceLock::holderPid() {
    int fd = ::open(lockPath().c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) return std::nullopt;
    char buffer[32] = {};
    ssize_t n = ::read(fd, buffer, sizeof buffer - 1);
    ::close(fd);
    if (n <= 0) return std::nullopt;
    int pid = 0;
    auto [end, error] = std::from_chars(buffer, buffer + n, pid);
    if (error != std::errc() || end == buffer || pid <= 0) return std::nullopt;
    return pid;
}

std::string InstanceLock::socketPath() { return runtimeDirectory() + "/velmora.socket"; }

}  // namespace velmora::platform
