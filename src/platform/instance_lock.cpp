#include "platform/instance_lock.h"

#include <cerrno>
#include <charconv>
#include <fcntl.h>
#include <string>
#include <sys/file.h>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>

namespace velmora::platform {

namespace {

constexpr const char* lockName = "velmora.lock";

std::string reason(int error) { return std::generic_category().message(error); }

}  // namespace

int openPrivateFolder(const std::string& folder, uid_t owner, std::string& problem) {
    if (folder.empty()) {
        problem = "no runtime folder is known";
        return -1;
    }
    auto slash = folder.rfind('/');
    if (slash != std::string::npos && slash > 0) makeDirectories(folder.substr(0, slash));
    if (::mkdir(folder.c_str(), 0700) != 0 && errno != EEXIST) {
        problem = folder + " cannot be made: " + reason(errno);
        return -1;
    }
    // Checked on the open folder itself, so that nothing can be swapped in between.
    int fd = ::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
    if (fd < 0) {
        int error = errno;
        struct stat link{};
        if (::lstat(folder.c_str(), &link) == 0 && S_ISLNK(link.st_mode))
            problem = folder + " is a symbolic link, not a folder";
        else if (error == ENOTDIR)
            problem = folder + " is not a folder";
        else problem = folder + " cannot be opened: " + reason(error);
        return -1;
    }
    struct stat info{};
    if (::fstat(fd, &info) != 0 || !S_ISDIR(info.st_mode)) {
        problem = folder + " is not a folder";
    } else if (info.st_uid != owner) {
        problem = folder + " belongs to another user (uid " + std::to_string(info.st_uid) + ")";
    } else if ((info.st_mode & 077) != 0 && ::fchmod(fd, 0700) != 0) {
        problem = folder + " is open to other users and cannot be made private: " + reason(errno);
    } else {
        return fd;
    }
    ::close(fd);
    return -1;
}

std::optional<InstanceLock> InstanceLock::acquire(std::string& problem, const std::string& folder) {
    problem.clear();
    int dir = openPrivateFolder(folder, ::getuid(), problem);
    if (dir < 0) return std::nullopt;
    // Never through a link, never into another user's file: the pid is written into it.
    int fd = ::openat(dir, lockName, O_RDWR | O_CREAT | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC, 0600);
    int error = errno;
    ::close(dir);
    const std::string path = folder + "/" + lockName;
    if (fd < 0) {
        problem = path + (error == ELOOP ? " is a symbolic link" : " cannot be opened: " + reason(error));
        return std::nullopt;
    }
    struct stat info{};
    if (::fstat(fd, &info) != 0 || !S_ISREG(info.st_mode) || info.st_uid != ::getuid()) {
        ::close(fd);
        problem = path + " is not a file of this user";
        return std::nullopt;
    }
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
    const std::string path = runtimeDirectory() + "/" + lockName;
    int fd = ::open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC);
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

}  // namespace velmora::platform
