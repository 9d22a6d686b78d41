#include "platform/descriptors.h"

#include <cerrno>
#include <fcntl.h>
#include <sys/socket.h>
#include <unistd.h>

namespace velmora::platform {

namespace {

// Not atomic, which is harmless here: every spawn uses POSIX_SPAWN_CLOEXEC_DEFAULT.
bool setFlags(int fd, bool nonBlocking) {
    if (::fcntl(fd, F_SETFD, FD_CLOEXEC) != 0) return false;
    return !nonBlocking || ::fcntl(fd, F_SETFL, ::fcntl(fd, F_GETFL) | O_NONBLOCK) == 0;
}

}  // namespace

int closeOnExecPipe(int ends[2], bool nonBlocking) {
    if (::pipe(ends) != 0) return -1;
    if (setFlags(ends[0], nonBlocking) && setFlags(ends[1], nonBlocking)) return 0;
    int saved = errno;
    ::close(ends[0]);
    ::close(ends[1]);
    errno = saved;
    return -1;
}

int closeOnExecSocket(int domain, int type, int protocol) {
    int fd = ::socket(domain, type, protocol);
    if (fd >= 0 && !setFlags(fd, false)) {
        int saved = errno;
        ::close(fd);
        errno = saved;
        return -1;
    }
    return fd;
}

}  // namespace velmora::platform
