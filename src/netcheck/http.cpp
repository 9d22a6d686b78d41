#include "netcheck/http.h"

#include <curl/curl.h>
#include <mutex>

namespace velmora::Http {

namespace {

void initialiseOnce() {
    static std::once_flag once;
    std::call_once(once, [] { curl_global_init(CURL_GLOBAL_DEFAULT); });
}

struct Body {
    std::string* text;
    std::size_t limit;
};

std::size_t appendBody(char* data, std::size_t size, std::size_t count, void* target) {
    auto* body = static_cast<Body*>(target);
    if (size * count > body->limit - body->text->size()) return 0;  // too long: ends the transfer
    body->text->append(data, size * count);
    return size * count;
}

}  // namespace

bool validURL(const std::string& url) {
    initialiseOnce();
    CURLU* parsed = curl_url();
    if (!parsed) return false;
    bool ok = curl_url_set(parsed, CURLUPART_URL, url.c_str(), 0) == CURLUE_OK;
    if (ok) {
        char* scheme = nullptr;
        char* host = nullptr;
        ok = curl_url_get(parsed, CURLUPART_SCHEME, &scheme, 0) == CURLUE_OK &&
             curl_url_get(parsed, CURLUPART_HOST, &host, 0) == CURLUE_OK && scheme && host && host[0] &&
             (std::string(scheme) == "https" || std::string(scheme) == "http");
        curl_free(scheme);
        curl_free(host);
    }
    curl_url_cleanup(parsed);
    return ok;
}

std::optional<Response> perform(const Request& request) {
    if (!validURL(request.url)) return std::nullopt;
    CURL* curl = curl_easy_init();
    if (!curl) return std::nullopt;
    Response response;
    curl_slist* headers = nullptr;
    for (const auto& header : request.headers) headers = curl_slist_append(headers, header.c_str());
    // No "Expect: 100-continue" round trip for larger bodies.
    if (request.method == "POST") headers = curl_slist_append(headers, "Expect:");

    curl_easy_setopt(curl, CURLOPT_URL, request.url.c_str());
    curl_easy_setopt(curl, CURLOPT_PROTOCOLS_STR, "http,https");
    curl_easy_setopt(curl, CURLOPT_NOSIGNAL, 1L);  // called from worker threads
    curl_easy_setopt(curl, CURLOPT_TIMEOUT_MS, static_cast<long>(request.timeoutSeconds * 1000));
    // Loopback never goes through a proxy.
    curl_easy_setopt(curl, CURLOPT_NOPROXY, "127.0.0.1,localhost,::1");
    curl_easy_setopt(curl, CURLOPT_WRITEFUNCTION, appendBody);
    Body body{&response.body, request.maxBodyBytes};
    curl_easy_setopt(curl, CURLOPT_WRITEDATA, &body);
    curl_easy_setopt(curl, CURLOPT_FOLLOWLOCATION, 1L);
    curl_easy_setopt(curl, CURLOPT_REDIR_PROTOCOLS_STR, "https");
    curl_easy_setopt(curl, CURLOPT_MAXREDIRS, 10L);
    if (headers) curl_easy_setopt(curl, CURLOPT_HTTPHEADER, headers);
    if (request.method == "POST") {
        curl_easy_setopt(curl, CURLOPT_POST, 1L);
        curl_easy_setopt(curl, CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(request.body.size()));
        curl_easy_setopt(curl, CURLOPT_POSTFIELDS, request.body.data());
    } else if (request.method != "GET") {
        curl_easy_setopt(curl, CURLOPT_CUSTOMREQUEST, request.method.c_str());
    }

    CURLcode code = curl_easy_perform(curl);
    if (code == CURLE_OK) curl_easy_getinfo(curl, CURLINFO_RESPONSE_CODE, &response.status);
    curl_slist_free_all(headers);
    curl_easy_cleanup(curl);
    if (code != CURLE_OK) return std::nullopt;
    return response;
}

}  // namespace velmora::Http
