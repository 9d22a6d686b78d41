#include "netcheck/net_info.h"

#include "core/text.h"
#include "netcheck/http.h"
#include "netcheck/service_url.h"
#include "platform/command_output.h"
#include "platform/descriptors.h"
#include "platform/system_info.h"
#include "platform/words.h"

#include <algorithm>
#include <arpa/inet.h>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <ifaddrs.h>
#include <map>
#include <net/if.h>
#include <netdb.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

namespace velmora::NetInfo {

namespace {

bool startsWith(std::string_view text, std::string_view prefix) {
    return text.substr(0, prefix.size()) == prefix;
}

// A whole piece read as a signed decimal integer (optional sign, digits, no overflow).
std::optional<std::int64_t> decimalInteger(std::string_view piece) {
    std::size_t i = 0;
    bool negative = false;
    if (!piece.empty() && (piece[0] == '+' || piece[0] == '-')) {
        negative = piece[0] == '-';
        i = 1;
    }
    if (i == piece.size()) return std::nullopt;
    const std::uint64_t limit = static_cast<std::uint64_t>(INT64_MAX) + (negative ? 1 : 0);
    std::uint64_t value = 0;
    for (; i < piece.size(); ++i) {
        char c = piece[i];
        if (c < '0' || c > '9') return std::nullopt;
        auto digit = static_cast<std::uint64_t>(c - '0');
        if (value > (limit - digit) / 10) return std::nullopt;
        value = value * 10 + digit;
    }
    if (negative) return value == static_cast<std::uint64_t>(INT64_MAX) + 1 ? INT64_MIN : -static_cast<std::int64_t>(value);
    return static_cast<std::int64_t>(value);
}

// Closes the descriptor on every way out.
struct FileDescriptor {
    int fd;
    ~FileDescriptor() {
        if (fd >= 0) ::close(fd);
    }
};

}  // namespace

std::vector<Address> localAddresses() {
    ifaddrs* list = nullptr;
    if (::getifaddrs(&list) != 0) return {};
    std::vector<Address> found;
    for (ifaddrs* entry = list; entry; entry = entry->ifa_next) {
        if (!entry->ifa_addr || entry->ifa_addr->sa_family != AF_INET) continue;
        if (!(entry->ifa_flags & IFF_UP) || (entry->ifa_flags & IFF_LOOPBACK)) continue;
        char host[NI_MAXHOST] = {};
        if (::getnameinfo(entry->ifa_addr, sizeof(sockaddr_in), host, sizeof host, nullptr, 0, NI_NUMERICHOST) != 0)
            continue;
        found.push_back({text::repairedUtf8(entry->ifa_name ? entry->ifa_name : ""),
                         text::repairedUtf8(std::string_view(host, ::strnlen(host, sizeof host)))});
    }
    ::freeifaddrs(list);
    return usable(found);
}

std::vector<Address> usable(const std::vector<Address>& addresses,
                            const std::function<bool(const std::string&)>& physical) {
    std::vector<Address> kept;
    for (const auto& address : addresses) {
        if (startsWith(address.ip, "127.") || startsWith(address.ip, "169.254.")) continue;
        auto pieces = text::split(address.ip, '.');
        if (pieces.size() != 4 || std::any_of(pieces.begin(), pieces.end(), [](auto& p) { return p.empty(); }))
            continue;
        kept.push_back(address);
    }
    // Asked once per interface, not per comparison: on Linux each answer is a look into /sys.
    std::map<std::string, bool> first;
    for (const auto& address : kept)
        if (!first.count(address.interface))
            first[address.interface] = physical ? physical(address.interface)
                                                : platform::isPhysicalInterface(address.interface);
    std::stable_sort(kept.begin(), kept.end(), [&first](const Address& a, const Address& b) {
        bool aFirst = first.at(a.interface);
        bool bFirst = first.at(b.interface);
        if (aFirst != bFirst) return aFirst;
        return a.interface < b.interface;
    });
    return kept;
}

bool isPrivate(std::string_view ip) {
    std::vector<std::int64_t> numbers;
    for (const auto& piece : text::split(ip, '.')) {
        if (piece.empty()) continue;
        if (auto number = decimalInteger(piece)) numbers.push_back(*number);
    }
    if (numbers.size() != 4) return false;
    for (auto number : numbers)
        if (number < 0 || number > 255) return false;
    return numbers[0] == 10 || (numbers[0] == 172 && numbers[1] >= 16 && numbers[1] <= 31) ||
           (numbers[0] == 192 && numbers[1] == 168);
}

bool isLinkLocal(std::string_view ip) { return startsWith(ip, "169.254."); }

bool canConnect(const std::string& host, std::int32_t port, double timeoutSeconds) {
    if (port < 0 || port > 65535) return false;
    // Close-on-exec from the start: never handed to a child another thread spawns meanwhile.
    FileDescriptor socket{platform::closeOnExecSocket(AF_INET, SOCK_STREAM, 0)};
    if (socket.fd < 0) return false;
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<std::uint16_t>(port));
    if (::inet_pton(AF_INET, host.c_str(), &address.sin_addr) != 1) return false;
    int flags = ::fcntl(socket.fd, F_GETFL, 0);
    ::fcntl(socket.fd, F_SETFL, flags | O_NONBLOCK);
    if (::connect(socket.fd, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0) return true;
    if (errno != EINPROGRESS) return false;
    double milliseconds = std::clamp(timeoutSeconds * 1000.0, 0.0, static_cast<double>(INT32_MAX));
    pollfd waiting{socket.fd, POLLOUT, 0};
    if (::poll(&waiting, 1, static_cast<int>(milliseconds)) < 1) return false;
    int error = 0;
    socklen_t length = sizeof error;
    if (::getsockopt(socket.fd, SOL_SOCKET, SO_ERROR, &error, &length) != 0) return false;
    return error == 0;
}

int connectedClients(std::int64_t port) {
    auto output = platform::commandOutput(platform::connectionListerPath(),
                                          {"-nP", "-iTCP:" + std::to_string(port), "-sTCP:ESTABLISHED"});
    if (!output) return 0;
    if (!text::isValidUtf8(*output)) return 0;  // undecodable output counts as empty
    return countEstablished(*output, port);
}

std::string portTakenText(std::int64_t port) {
    return "Port " + std::to_string(port) + " is in use by another program.";
}

bool portTaken(std::int64_t port) {
    if (port < 1 || port > 65535) return false;
    int fd = platform::closeOnExecSocket(AF_INET, SOCK_STREAM, 0);
    if (fd < 0) return false;
    int on = 1;
    ::setsockopt(fd, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<std::uint16_t>(port));
    address.sin_addr.s_addr = htonl(INADDR_ANY);
    bool taken = ::bind(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0 && errno == EADDRINUSE;
    ::close(fd);
    return taken;
}

std::vector<int> listeningProcesses(std::int64_t port) {
    auto output = platform::commandOutput(platform::connectionListerPath(),
                                          {"-nP", "-t", "-iTCP:" + std::to_string(port), "-sTCP:LISTEN"});
    std::vector<int> pids;
    if (!output) return pids;
    for (const auto& line : text::split(*output, '\n'))
        if (auto pid = decimalInteger(text::trimmed(line)); pid && *pid > 0) pids.push_back(static_cast<int>(*pid));
    return pids;
}

int countEstablished(std::string_view lsofOutput, std::int64_t port) {
    int count = 0;
    std::size_t start = 0;
    while (start < lsofOutput.size()) {
        std::size_t end = lsofOutput.find('\n', start);
        if (end == std::string_view::npos) end = lsofOutput.size();
        std::string_view line = lsofOutput.substr(start, end - start);
        start = end + 1;
        if (line.empty() || line.find("(ESTABLISHED)") == std::string_view::npos) continue;
        std::size_t arrow = line.find("->");
        if (arrow == std::string_view::npos) continue;
        std::size_t colon = line.substr(0, arrow).rfind(':');
        if (colon == std::string_view::npos) continue;
        auto local = decimalInteger(line.substr(colon + 1, arrow - colon - 1));
        if (local && *local == port) ++count;
    }
    return count;
}

std::optional<std::string> publicIP() {
    Http::Request request;
    request.url = serviceBaseURL() + "/v1/ip";
    // The request's own limit (4 s) keeps the whole query within the 5 s the caller may wait.
    request.timeoutSeconds = 4.0;
    auto response = Http::perform(request);
    if (!response || response->body.empty() || !text::isValidUtf8(response->body)) return std::nullopt;
    return parsePublicIP(response->body);
}

std::optional<std::string> parsePublicIP(std::string_view response) {
    std::string trimmed = text::trimmed(response);
    auto pieces = text::split(trimmed, '.');
    if (pieces.size() != 4) return std::nullopt;
    for (const auto& piece : pieces) {
        if (piece.empty()) return std::nullopt;
        int value = 0;
        for (char c : piece) {
            if (c < '0' || c > '9') return std::nullopt;
            value = value * 10 + (c - '0');
            if (value > 255) return std::nullopt;
        }
    }
    return trimmed;
}

std::string afterRestartNote(bool opensAtLogin) {
    std::string note = platform::say(platform::words::afterRestart);
    if (!opensAtLogin)
        note += "\nTurn on \"Open Velmora at Login\" in the menu, or it will not start after a restart at all.";
    return note;
}

std::string report(std::int64_t port, bool running, const std::vector<Address>& addresses, bool listening,
                   const std::optional<std::string>& publicIP, bool opensAtLogin, bool takenByOther) {
    if (!running)
        return "The server is not running. Choose Start Server in the menu, then test again.\n\n" +
               afterRestartNote(opensAtLogin);
    std::string portText = std::to_string(port);
    std::vector<std::string> lines;
    if (takenByOther)
        lines.push_back(portTakenText(port) + " Quit it, or choose another port in Settings.");
    else if (listening)
        lines.push_back("The server is listening on port " + portText + platform::say(platform::words::onThisMac));
    else
        lines.push_back("The server says it is running but nothing answers on port " + portText + ". Check the log.");
    if (!addresses.empty()) {
        lines.push_back("In Windows App, add a PC and type one of these:");
        for (const auto& address : addresses)
            lines.push_back("    " + address.ip + ":" + portText + "   (" + address.interface + ")");
        if (std::any_of(addresses.begin(), addresses.end(), [](const Address& a) { return isPrivate(a.ip); }))
            lines.push_back("These work from computers on the same network. To connect from elsewhere you need a VPN "
                            "or a port forward on your router.");
    } else {
        lines.push_back(platform::say(platform::words::noNetworkAddress));
    }
    if (publicIP)
        lines.push_back("Your public address is " + *publicIP + ". Forward port " + portText +
                        platform::say(platform::words::forwardToThisMac));
    lines.push_back(platform::say(platform::words::checkFirewall));
    lines.push_back("");
    lines.push_back(afterRestartNote(opensAtLogin));
    return text::join(lines, "\n");
}

}  // namespace velmora::NetInfo
