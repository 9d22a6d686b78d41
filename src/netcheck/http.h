#pragma once
// One blocking HTTP request through libcurl, for the public-address query and the usage ping.

#include <optional>
#include <string>
#include <vector>

namespace velmora::Http {

struct Request {
    std::string method = "GET";
    std::string url;
    std::vector<std::string> headers;  // "Name: value"
    std::string body;
    double timeoutSeconds = 15.0;
};

struct Response {
    long status = 0;
    std::string body;
};

// True when `url` is an http or https URL libcurl can parse.
bool validURL(const std::string& url);

// The response, or absent on a transport error (no connection, time-out, bad URL).
std::optional<Response> perform(const Request& request);

}  // namespace velmora::Http
