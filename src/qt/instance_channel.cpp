#include "qt/instance_channel.h"

#include "platform/instance_socket.h"

#include <QTimer>

#include <algorithm>
#include <cerrno>
#include <unistd.h>

namespace velmora {

InstanceChannel::InstanceChannel(Answer answer) : answer_(std::move(answer)) {
    listener_ = platform::listenForRequests();
    if (listener_ < 0) return;
    listenNotifier_ = new QSocketNotifier(listener_, QSocketNotifier::Read, &context_);
    QObject::connect(listenNotifier_, &QSocketNotifier::activated, &context_, [this] { acceptWaiting(); });
}

InstanceChannel::~InstanceChannel() {
    // Each notifier goes before its descriptor.
    for (const Connection& connection : connections_) {
        delete connection.notifier;
        ::close(connection.fd);
    }
    delete listenNotifier_;
    if (listener_ >= 0) ::close(listener_);
}

void InstanceChannel::acceptWaiting() {
    for (;;) {
        int fd = platform::acceptRequest(listener_);
        if (fd >= 0) {
            pauseMilliseconds_ = 0;
            if (connections_.size() >= maxConnections) drop(connections_.front().id);
            const std::uint64_t id = nextId_++;
            auto* notifier = new QSocketNotifier(fd, QSocketNotifier::Read, &context_);
            connections_.push_back({id, fd, {}, notifier});
            QObject::connect(notifier, &QSocketNotifier::activated, notifier, [this, id] { readFrom(id); });
            // Dies with the notifier, so a connection that ended first leaves no timer behind.
            QTimer::singleShot(idleMilliseconds, notifier, [this, id] { drop(id); });
            continue;
        }
        if (errno == EINTR || errno == ECONNABORTED) continue;
        if (errno == EAGAIN || errno == EWOULDBLOCK) return;
        // Out of descriptors or memory (EMFILE, ENFILE, ENOBUFS, ENOMEM): the connection stays queued.
        // Giving up the oldest connection frees a descriptor; with none to give up, pause and retry.
        if (!connections_.empty()) {
            drop(connections_.front().id);
            continue;
        }
        pauseMilliseconds_ = std::clamp(pauseMilliseconds_ * 2, 50, 2000);
        listenNotifier_->setEnabled(false);
        QTimer::singleShot(pauseMilliseconds_, listenNotifier_, [this] {
            listenNotifier_->setEnabled(true);
            acceptWaiting();
        });
        return;
    }
}

std::list<InstanceChannel::Connection>::iterator InstanceChannel::find(std::uint64_t id) {
    return std::find_if(connections_.begin(), connections_.end(), [id](const Connection& c) { return c.id == id; });
}

void InstanceChannel::readFrom(std::uint64_t id) {
    auto it = find(id);
    if (it == connections_.end()) return;
    char chunk[512];
    for (;;) {
        ssize_t n = ::read(it->fd, chunk, sizeof chunk);
        if (n < 0 && errno == EINTR) continue;
        if (n < 0 && (errno == EAGAIN || errno == EWOULDBLOCK)) return;
        if (n <= 0) return drop(id);
        it->received.append(chunk, static_cast<std::size_t>(n));
        auto end = it->received.find('\n');
        if (end == std::string::npos) {
            if (it->received.size() > platform::maxRequestLength) return drop(id);
            continue;
        }
        std::string request = it->received.substr(0, end);
        if (!request.empty() && request.back() == '\r') request.pop_back();
        // The answer may take a while (a server restart): the connection is looked up afresh after.
        std::string answer = answer_ ? answer_(request) : std::string();
        it = find(id);
        if (it != connections_.end()) platform::sendAnswer(it->fd, answer);
        return drop(id);
    }
}

void InstanceChannel::drop(std::uint64_t id) {
    auto it = find(id);
    if (it == connections_.end()) return;
    it->notifier->setEnabled(false);
    it->notifier->deleteLater();  // it may be the one whose signal runs now
    ::close(it->fd);
    connections_.erase(it);
}

}  // namespace velmora
