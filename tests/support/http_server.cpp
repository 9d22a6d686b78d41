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
        // "METHOD /path HTTP/1.1", then "Name: value" lines.
        std::istringstream head(data.substr(0, headerEnd));
        std::string line;
        std::getline(head, line);
        std::istringstream(line) >> request.method >> request.path;
        while (std::getline(head, line)) {
            if (!line.empty() && line.back() == '\r') line.pop_back();
            std::size_t colon = line.find(':');
            if (colon == std::string::npos) continue;
            std::string name = line.substr(0, colon);
            for (auto& c : name) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
            std::size_t value = line.find_first_not_of(' ', colon + 1);
            request.headers[name] = value == std::string::npos ? "" : line.substr(value);
        }
        if (auto found = request.headers.find("content-length"); found != request.headers.end())
            contentLength = std::stoul(found->second);
    }
    request.body = data.substr(headerEnd + 4, contentLength);
    // Recorded before answering: a client that has its answer can count on the request being seen.
    int status;
    std::string body, location;
    {
        std::lock_guard lock(mutex_);
        status = status_;
        body = body_;
        location = location_;
        requests_.push_back(std::move(request));
    }
    arrived_.notify_all();
    std::string response = "HTTP/1.1 " + std::to_string(status) + " Test\r\nContent-Length: " +
                           std::to_string(body.size()) + "\r\n" +
                           (location.empty() ? "" : "Location: " + location + "\r\n") + "Connection: close\r\n\r\n" + body;
    std::size_t sent = 0;
    while (sent < response.size()) {
        ssize_t n = ::send(connection, response.data() + sent, response.size() - sent, MSG_NOSIGNAL);
        if (n <= 0) break;
        sent += static_cast<std::size_t>(n);
    }
}

}  // namespace velmora::test
