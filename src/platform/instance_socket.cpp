#include "platform/instance_socket.h"

#include "platform/descriptors.h"
#include "platform/instance_lock.h"
#include "platform/paths.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <sys/un.h>
#include <unistd.h>

namespace velmora::platform {

namespace {

#ifdef MSG_NOSIGNAL
constexpr int noSigpipe = MSG_NOSIGNAL;
#else
constexpr int noSigpipe = 0;  // SO_NOSIGPIPE is set on the socket instead
#endif

void avoidSigpipe([[maybe_unused]] int fd) {
#ifdef SO_NOSIGPIPE
    int on = 1;
    ::setsockopt(fd, SOL_SOCKET, SO_NOSIGPIPE, &on, sizeof on);
#endif
}

bool socketAddress(const std::string& path, sockaddr_un& address) {
    std::memset(&address, 0, sizeof address);
    address.sun_family = AF_UNIX;
    if (path.empty() || path.size() >= sizeof address.sun_path) return false;
    std::memcpy(address.sun_path, path.c_str(), path.size() + 1);
    return true;
}

}  // namespace

std::string socketPath() { return runtimeDirectory() + "/velmora.socket"; }

std::optional<std::string> askRunningVelmora(const std::string& request, double timeoutSeconds) {
    std::string problem;
    int folder = openPrivateFolder(runtimeDirectory(), ::getuid(), problem);
    if (folder < 0) return std::nullopt;
    ::close(folder);
    sockaddr_un address{};
    if (!socketAddress(socketPath(), address)) return std::nullopt;
    int fd = closeOnExecSocket(AF_UNIX, SOCK_STREAM, 0);
    if (fd < 0) return std::nullopt;
    avoidSigpipe(fd);
    // Every blocking step (connect included, for a local socket) gives up after the time-out.
    timeval limit{};
    limit.tv_sec = static_cast<decltype(limit.tv_sec)>(timeoutSeconds);
    limit.tv_usec = static_cast<decltype(limit.tv_usec)>((timeoutSeconds - static_cast<double>(limit.tv_sec)) * 1e6);
    ::setsockopt(fd, SOL_SOCKET, SO_SNDTIMEO, &limit, sizeof limit);
    ::setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit);
    std::optional<std::string> answer;
    const std::string line = request + "\n";
    if (::connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0 &&
        ::send(fd, line.data(), line.size(), noSigpipe) == static_cast<ssize_t>(line.size())) {
        std::string received;
        char chunk[256];
        ssize_t n = 0;
        while (received.find('\n') == std::string::npos && received.size() <= maxRequestLength &&
               ((n = ::recv(fd, chunk, sizeof chunk, 0)) > 0 || (n < 0 && errno == EINTR))) {
            if (n > 0) received.append(chunk, static_cast<std::size_t>(n));
        }
        if (auto end = received.find('\n'); end != std::string::npos) answer = received.substr(0, end);
    }
    ::close(fd);
    return answer;
}

int listenForRequests() {
    const std::string path = socketPath();
    sockaddr_un address{};
    if (!socketAddress(path, address)) return -1;
    int fd = closeOnExecSocket(AF_UNIX, SOCK_STREAM, 0);
    if (fd < 0) return -1;
    ::unlink(path.c_str());
    if (::bind(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0 || ::listen(fd, 16) != 0 ||
        ::chmod(path.c_str(), 0600) != 0) {
        ::close(fd);
        return -1;
    }
    ::fcntl(fd, F_SETFL, ::fcntl(fd, F_GETFL) | O_NONBLOCK);
    return fd;
}

int acceptRequest(int listener) {
    // Not close-on-exec for an instant: children close every inherited descriptor themselves.
    int fd = ::accept(listener, nullptr, nullptr);
    if (fd < 0) return -1;
    ::fcntl(fd, F_SETFD, FD_CLOEXEC);
    ::fcntl(fd, F_SETFL, ::fcntl(fd, F_GETFL) | O_NONBLOCK);
    avoidSigpipe(fd);
    return fd;
}

bool sendAnswer(int connection, const std::string& answer) {
    const std::string line = answer + "\n";
    return ::send(connection, line.data(), line.size(), noSigpipe) == static_cast<ssize_t>(line.size());
}

}  // namespace velmora::platform
