#pragma once
// Questions about the network that the connection test, the diagnostics report and the usage ping
// ask: this computer's usable IPv4 addresses, whether a TCP port answers, how many clients are
// connected to the server, and the public address. Every helper blocks its caller (up to a few
// seconds), keeps no state and turns every failure into a neutral answer.

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace velmora::NetInfo {

struct Address {
    std::string interface;  // the interface name as the system lists it (en0, eth0, wlan0)
    std::string ip;         // dotted-decimal IPv4

    bool operator==(const Address&) const = default;
};

// The usable IPv4 addresses of up, non-loopback interfaces, sorted by usable().
std::vector<Address> localAddresses();

// Drops loopback, link-local and malformed addresses, then sorts stably: physical interfaces first
// (`physical`, by default platform::isPhysicalInterface), each group by interface name; addresses
// of one interface keep their order.
std::vector<Address> usable(const std::vector<Address>& addresses,
                            const std::function<bool(const std::string&)>& physical = {});

// RFC 1918: 10/8, 172.16/12, 192.168/16.
bool isPrivate(std::string_view ip);

// Starts with "169.254.".
bool isLinkLocal(std::string_view ip);

// A TCP connection to the IPv4 literal `host` (never a name look-up) within `timeoutSeconds`.
bool canConnect(const std::string& host, std::int32_t port, double timeoutSeconds = 2.0);

// Established inbound TCP connections on the local `port`, counted from the connection lister's
// output; 0 when the lister cannot run.
int connectedClients(std::int64_t port);

// Whether another program holds the TCP port: binding it on every address (as a server does, with
// SO_REUSEADDR) is refused.
bool portTaken(std::int64_t port);
// The processes listening on the TCP port, from the connection lister; empty when none or when
// the lister cannot run.
std::vector<int> listeningProcesses(std::int64_t port);

// The count of connected clients in the lister's output: "(ESTABLISHED)" lines whose local end
// (before "->") has the port `port`.
int countEstablished(std::string_view lsofOutput, std::int64_t port);

// The public IPv4 address as the service reports it (GET <service>/v1/ip), or absent.
std::optional<std::string> publicIP();

// The trimmed answer when it is a bare dotted-decimal IPv4 address, else absent.
std::optional<std::string> parsePublicIP(std::string_view response);

// The connection test's text for a non-technical reader.
// `takenByOther`: what answers on the port is another program, not Velmora Server.
std::string report(std::int64_t port, bool running, const std::vector<Address>& addresses, bool listening,
                   const std::optional<std::string>& publicIP, bool opensAtLogin, bool takenByOther = false);

// "Port N is in use by another program."
std::string portTakenText(std::int64_t port);

// What to mind after a restart of the computer.
std::string afterRestartNote(bool opensAtLogin);

}  // namespace velmora::NetInfo
