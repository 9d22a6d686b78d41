#include "support/loopback.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <stdexcept>
#include <sys/socket.h>
#include <unistd.h>

namespace velmora::test {

namespace {

sockaddr_in loopback(int port) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port = htons(static_cast<uint16_t>(port));
    return address;
}

}  // namespace

int listeningLoopbackSocket(int& port) {
    int fd = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address = loopback(0);
    socklen_t length = sizeof address;
    if (fd < 0 || ::bind(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0 ||
        ::getsockname(fd, reinterpret_cast<sockaddr*>(&address), &length) != 0 || ::listen(fd, 16) != 0)
        throw std::runtime_error("could not listen on a loopback socket");
    port = ntohs(address.sin_port);
    return fd;
}

LoopbackListener::LoopbackListener() { listener_ = listeningLoopbackSocket(port_); }

LoopbackListener::~LoopbackListener() {
    for (int fd : sockets_) ::close(fd);
    ::close(listener_);
}

void LoopbackListener::connectClient() {
    int client = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address = loopback(port_);
    if (client < 0 || ::connect(client, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0)
        throw std::runtime_error("could not connect to the loopback listener");
    int accepted = ::accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC);
    if (accepted < 0) throw std::runtime_error("accept failed");
    sockets_.push_back(client);
    sockets_.push_back(accepted);
}

int closedLoopbackPort() {
    int port = 0;
    ::close(listeningLoopbackSocket(port));
    return port;
}

}  // namespace velmora::test
