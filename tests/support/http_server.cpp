#include "support/http_server.h"

#include "support/loopback.h"

#include <cctype>
#include <poll.h>
#include <sstream>
#include <sys/socket.h>
#include <unistd.h>

namespace velmora::test {

HttpServer::HttpServer() {
    listener_ = listeningLoopbackSocket(port_);
    thread_ = std::thread([this] { serve(); });
}

HttpServer::~HttpServer() {
    stopping_ = true;
    thread_.join();
    ::close(listener_);
}

std::string HttpServer::baseURL() const { return "http://127.0.0.1:" + std::to_string(port_); }

void HttpServer::answer(int status, std::string body, std::string location) {
    std::lock_guard lock(mutex_);
    status_ = status;
    body_ = std::move(body);
    location_ = std::move(location);
}

std::vector<HttpRequest> HttpServer::requests() const {
    std::lock_guard lock(mutex_);
    return requests_;
}

bool HttpServer::waitForRequests(std::size_t count, double seconds) const {
    std::unique_lock lock(mutex_);
    return arrived_.wait_for(lock, std::chrono::duration<double>(seconds), [&] { return requests_.size() >= count; });
}

void HttpServer::serve() {
    while (!stopping_) {
        pollfd waiting{listener_, POLLIN, 0};
        if (::poll(&waiting, 1, 50) < 1) continue;
        int connection = ::accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC);
        if (connection < 0) continue;
        handle(connection);
        ::close(connection);
    }
}

void HttpServer::handle(int connection) {
    std::string data;
    HttpRequest request;
    std::size_t headerEnd = std::string::npos, contentLength = 0;
    while (headerEnd == std::string::npos || data.size() < headerEnd + 4 + contentLength) {
        char buffer[8192];
        pollfd waiting{connection, POLLIN, 0};
        ssize_t n = ::poll(&waiting, 1, 5000) < 1 ? -1 : ::read(connection, buffer, sizeof buffer);
        if (n <= 0) return;
        data.append(buffer, static_cast<std::size_t>(n));
        if (headerEnd != std::string::npos || (headerEnd = data.find("\r\n\r\n")) == std::string::npos) continue;
        std::istringstream(data) >> request.method >> request.path;  // "METHOD /path HTTP/1.1"
        request.head = data.substr(0, headerEnd + 2).substr(data.find("\r\n"));
        for (auto& c : request.head) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
        if (auto at = request.head.find("\r\ncontent-length:"); at != std::string::npos)
            contentLength = std::stoul(request.head.substr(at + 17));
    }
    request.body = data.substr(headerEnd + 4, contentLength);
    // Recorded before answering: a client that has its answer can count on the request being seen.
    std::string response;
    {
        std::lock_guard lock(mutex_);
        response = "HTTP/1.1 " + std::to_string(status_) + " Test\r\nContent-Length: " + std::to_string(body_.size()) +
                   "\r\n" + (location_.empty() ? "" : "Location: " + location_ + "\r\n") + "Connection: close\r\n\r\n" + body_;
        requests_.push_back(std::move(request));
    }
    arrived_.notify_all();
    // The tests' answers are small: one send on a blocking socket takes each whole.
    ::send(connection, response.data(), response.size(), MSG_NOSIGNAL);
}

}  // namespace velmora::test
