#include "support/http_server.h"

#include <arpa/inet.h>
#include <cctype>
#include <netinet/in.h>
#include <poll.h>
#include <stdexcept>
#include <sys/socket.h>
#include <unistd.h>

namespace velmora::test {

HttpServer::HttpServer() {
    listener_ = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (listener_ < 0) throw std::runtime_error("socket failed");
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t length = sizeof address;
    if (::bind(listener_, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0 ||
        ::listen(listener_, 16) != 0 ||
        ::getsockname(listener_, reinterpret_cast<sockaddr*>(&address), &length) != 0)
        throw std::runtime_error("could not listen on loopback");
    port_ = ntohs(address.sin_port);
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
    char buffer[8192];
    std::size_t headerEnd = std::string::npos;
    std::size_t contentLength = 0;
    HttpRequest request;
    for (;;) {
        pollfd waiting{connection, POLLIN, 0};
        if (::poll(&waiting, 1, 5000) < 1) return;
        ssize_t n = ::read(connection, buffer, sizeof buffer);
        if (n <= 0) return;
        data.append(buffer, static_cast<std::size_t>(n));
        if (headerEnd == std::string::npos) {
            headerEnd = data.find("\r\n\r\n");
            if (headerEnd == std::string::npos) continue;
            std::size_t lineEnd = data.find("\r\n");
            std::string first = data.substr(0, lineEnd);
            std::size_t space = first.find(' ');
            request.method = first.substr(0, space);
            request.path = first.substr(space + 1, first.find(' ', space + 1) - space - 1);
            std::size_t at = lineEnd + 2;
            while (at < headerEnd) {
                std::size_t end = data.find("\r\n", at);
                std::string line = data.substr(at, end - at);
                at = end + 2;
                std::size_t colon = line.find(':');
                if (colon == std::string::npos) continue;
                std::string name = line.substr(0, colon);
                for (auto& c : name) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
                std::string value = line.substr(colon + 1);
                while (!value.empty() && value.front() == ' ') value.erase(0, 1);
                request.headers[name] = value;
            }
            if (auto found = request.headers.find("content-length"); found != request.headers.end())
                contentLength = std::stoul(found->second);
        }
        if (data.size() >= headerEnd + 4 + contentLength) break;
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
