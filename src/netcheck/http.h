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
    std::size_t maxBodyBytes = 1 << 20;  // a longer answer is a failed request
};

struct Response {
    long status = 0;
    std::string body;
};

// True when `url` is an http or https URL libcurl can parse.
bool validURL(const std::string& url);

// The response, or absent on a transport error (no connection, time-out, bad URL, a body beyond
// maxBodyBytes). Redirects are followed, as a URL session does, but only to https URLs (up to 10);
// a redirect elsewhere is a failed request.
std::optional<Response> perform(const Request& request);

}  // namespace velmora::Http
