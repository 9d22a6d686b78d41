#pragma once
// A real TCP listener on an ephemeral 127.0.0.1 port, and real clients connected to it, so that
// connect tests and the connection lister see genuine sockets.

#include <vector>

namespace velmora::test {

class LoopbackListener {
public:
    LoopbackListener();
    ~LoopbackListener();  // closes every socket
    LoopbackListener(const LoopbackListener&) = delete;
    LoopbackListener& operator=(const LoopbackListener&) = delete;

    int port() const { return port_; }
    // Connects one more client and accepts it; the connection stays established until destruction.
    void connectClient();

private:
    int listener_ = -1;
    int port_ = 0;
    std::vector<int> sockets_;
};

// A loopback port on which nothing listens (one listened on to learn a free number, then closed).
int closedLoopbackPort();

// A close-on-exec socket listening on an ephemeral 127.0.0.1 port, which goes to `port`.
int listeningLoopbackSocket(int& port);

}  // namespace velmora::test
