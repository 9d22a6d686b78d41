#pragma once
// How a second launch or a command reaches the running Velmora: the local socket beside the
// instance lock (platform/instance_socket.h). The running one listens on Qt's event loop and
// answers one request line per connection. A local process cannot wear it down: connections are
// capped (the oldest goes when a new one comes), idle ones time out, a request longer than one
// short line ends its connection, and the listener stays open through accept errors (out of
// descriptors: it pauses, then listens on).

#include <QObject>
#include <QSocketNotifier>

#include <cstdint>
#include <functional>
#include <list>
#include <memory>
#include <string>

namespace velmora {

class InstanceChannel {
public:
    // The answer line for one request, on the main thread.
    using Answer = std::function<std::string(const std::string& request)>;

    static constexpr std::size_t maxConnections = 8;
    static constexpr int idleMilliseconds = 3000;

    // Listens (replacing a socket left by a crashed run: the caller holds the lock).
    explicit InstanceChannel(Answer answer);
    ~InstanceChannel();
    InstanceChannel(const InstanceChannel&) = delete;
    InstanceChannel& operator=(const InstanceChannel&) = delete;
    bool listening() const { return listener_ >= 0; }

private:
    struct Connection {
        std::uint64_t id;
        int fd;
        std::string received;
        QSocketNotifier* notifier;  // a child of context_
    };
    std::list<Connection>::iterator find(std::uint64_t id);
    void acceptWaiting();
    void readFrom(std::uint64_t id);
    void drop(std::uint64_t id);

    Answer answer_;
    int listener_ = -1;
    QObject context_;
    QSocketNotifier* listenNotifier_ = nullptr;
    std::list<Connection> connections_;  // oldest first
    std::uint64_t nextId_ = 0;
    int pauseMilliseconds_ = 0;
};

}  // namespace velmora
