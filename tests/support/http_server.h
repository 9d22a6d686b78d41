#pragma once
// A small HTTP/1.1 server on 127.0.0.1 for tests: records every request and answers with the
// status and body the test sets (200 and an empty body unless told otherwise). One thread accepts
// and serves connections one at a time; every answer closes its connection.

#include <atomic>
#include <condition_variable>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace velmora::test {

struct HttpRequest {
    std::string method;
    std::string path;
    std::string head;  // the header lines in lower case, each with its CR LF in front and after
    std::string body;
};

class HttpServer {
public:
    HttpServer();   // listens on an ephemeral loopback port
    ~HttpServer();  // stops and joins

    // "http://127.0.0.1:<port>"
    std::string baseURL() const;

    // `location`, when given, is sent as the Location header (a redirect).
    void answer(int status, std::string body = {}, std::string location = {});

    std::vector<HttpRequest> requests() const;
    // Waits in real time until at least `count` requests arrived; false after `seconds`.
    bool waitForRequests(std::size_t count, double seconds = 10.0) const;

private:
    void serve();
    void handle(int connection);

    int listener_ = -1;
    int port_ = 0;
    std::atomic<bool> stopping_{false};
    mutable std::mutex mutex_;
    mutable std::condition_variable arrived_;
    std::vector<HttpRequest> requests_;
    int status_ = 200;
    std::string body_;
    std::string location_;
    std::thread thread_;
};

}  // namespace velmora::test
