#include "netcheck/connection_test.h"
#include "netcheck/http.h"
#include "netcheck/net_info.h"

#include "platform/command_output.h"
#include "platform/system_info.h"
#include "platform/words.h"
#include "support/http_server.h"
#include "support/loopback.h"
#include "support/scoped_env.h"
#include "support/temp_home.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <filesystem>
#include <unistd.h>

namespace velmora {
namespace {

using NetInfo::Address;

TEST(NetInfo, UsableDropsLoopbackLinkLocalAndMalformedThenPutsPhysicalInterfacesFirst) {
    // A /sys/class/net of a Linux laptop running Docker and libvirt: only eth0 and wlp2s0 have a device.
    test::TempHome home;
    const std::string classNet = home.path() + "/class-net";
    for (const char* name : {"eth0", "wlp2s0", "docker0", "br-1a2b", "virbr0", "tun0"})
        std::filesystem::create_directories(classNet + "/" + name);
    for (const char* name : {"eth0", "wlp2s0"}) std::filesystem::create_directories(classNet + "/" + name + "/device");
    auto physical = [&](const std::string& name) { return platform::isPhysicalInterface(name, classNet); };

    std::vector<Address> listed{
        {"docker0", "172.17.0.1"}, {"wlp2s0", "192.168.1.30"}, {"lo", "127.0.0.1"},  {"br-1a2b", "172.18.0.1"},
        {"eth0", "192.168.1.20"},  {"tun0", "10.8.0.2"},      {"eth0", "169.254.3.4"}, {"eth0", "10.0.0.7"},
        {"virbr0", "1.2.3"},       {"virbr0", "192.168.122.1"}, {"../..", "10.1.1.1"},
    };
    std::vector<Address> expected{
        {"eth0", "192.168.1.20"},  {"eth0", "10.0.0.7"},  {"wlp2s0", "192.168.1.30"}, {"../..", "10.1.1.1"},
        {"br-1a2b", "172.18.0.1"}, {"docker0", "172.17.0.1"}, {"tun0", "10.8.0.2"},   {"virbr0", "192.168.122.1"},
    };
    EXPECT_EQ(NetInfo::usable(listed, physical), expected);
    // Never IPv6 or loopback from the system itself.
    for (const auto& address : NetInfo::localAddresses()) {
        EXPECT_NE(address.ip.rfind("127.", 0), 0u) << address.ip;
        EXPECT_EQ(address.ip.find(':'), std::string::npos) << address.ip;
    }
}

TEST(NetInfo, PrivateAddresses) {
    for (const char* yes : {"10.0.0.1", "172.16.0.1", "172.31.255.255", "192.168.1.20"})
        EXPECT_TRUE(NetInfo::isPrivate(yes)) << yes;
    for (const char* no : {"172.15.0.1", "172.32.0.1", "10.0.0.1.5", "192.169.0.1", "8.8.8.8", "10.0.0.256", ""})
        EXPECT_FALSE(NetInfo::isPrivate(no)) << no;
}

TEST(NetInfo, CanConnectOnlyToAListeningIPv4LiteralAndConnectedClientsSeesRealConnections) {
    test::LoopbackListener listener;
    EXPECT_TRUE(NetInfo::canConnect("127.0.0.1", listener.port()));
    EXPECT_FALSE(NetInfo::canConnect("localhost", listener.port()));  // no name look-up
    EXPECT_FALSE(NetInfo::canConnect("127.0.0.1", test::closedLoopbackPort()));
    EXPECT_FALSE(NetInfo::canConnect("127.0.0.1", 70000));
    // Both ends are this process's sockets; only the server's end has the local port. (A listener of
    // its own: the one above still holds the connect tests' connections, unaccepted.)
    test::LoopbackListener clients;
    EXPECT_EQ(NetInfo::connectedClients(clients.port()), 0);
    clients.connectClient();
    clients.connectClient();
    EXPECT_EQ(NetInfo::connectedClients(clients.port()), 2);
}

TEST(NetInfo, CountEstablishedCountsInboundConnectionsOnTheLocalPort) {
    const std::string output =
        "COMMAND     PID USER   FD   TYPE DEVICE SIZE/OFF NODE NAME\n"
        "velmora-s 4242 anna   12u  IPv4 0x1234      0t0  TCP *:3389 (LISTEN)\n"
        "velmora-s 4242 anna   13u  IPv4 0x1235      0t0  TCP 192.168.1.20:3389->192.168.1.50:51234 (ESTABLISHED)\n"
        "velmora-s 4242 anna   14u  IPv4 0x1236      0t0  TCP 192.168.1.20:3389->192.168.1.50:51235 (ESTABLISHED)\n"
        "\n"
        "velmora-s 4242 anna   15u  IPv6 0x1237      0t0  TCP [fe80::1]:3389->[fe80::2]:50000 (ESTABLISHED)\n"
        "mstsc     5000 anna   16u  IPv4 0x1238      0t0  TCP 192.168.1.20:60000->10.0.0.9:3389 (ESTABLISHED)\n"
        "velmora-s 4242 anna   17u  IPv4 0x1239      0t0  TCP 192.168.1.20:3389->192.168.1.51:1 (CLOSE_WAIT)\n"
        "odd       1    anna   18u  IPv4 0x1240      0t0  TCP no-arrow-here:3389 (ESTABLISHED)\n"
        "velmora-s 4242 anna   20u  IPv4 0x1242      0t0  TCP 192.168.1.20:13389->192.168.1.50:3389 (ESTABLISHED)";
    EXPECT_EQ(NetInfo::countEstablished(output, 3389), 3);
    EXPECT_EQ(NetInfo::countEstablished(output, 13389), 1);
    EXPECT_EQ(NetInfo::countEstablished(output, 51234), 0);  // the remote end's port does not count
    // A port past the 64-bit range (2^64 + 3389) is no port, not 3389 wrapped around.
    EXPECT_EQ(NetInfo::countEstablished("x TCP 1.2.3.4:18446744073709555005->5.6.7.8:1 (ESTABLISHED)", 3389), 0);
}

TEST(CommandOutput, CollectsStandardOutputOnlyAndPassesNoOtherDescriptors) {
    EXPECT_FALSE(platform::commandOutput("/nonexistent/lsof", {}).has_value());
    // Standard output only, also of a failing command; standard input is empty; a descriptor this
    // process left inheritable does not reach the child.
    int leaked = ::open("/dev/null", O_RDONLY);
    auto seen = platform::commandOutput("/bin/sh", {"-c",
                                                    "read line; echo \"[$line]\" \"$1\"; echo err >&2; [ -e /proc/$$/fd/" +
                                                        std::to_string(leaked) + " ] && echo leaked; exit 3",
                                                    "sh", "a b"});
    ::close(leaked);
    EXPECT_EQ(seen, "[] a b\n");
}

TEST(NetInfo, PublicIPAsksTheServiceAndIgnoresTheStatusOverHttpThatNeverLeavesTlsAndCapsBodies) {
    test::HttpServer service;
    test::ScopedEnv url("VELMORA_SERVICE_URL", service.baseURL() + "/");  // the slash is not doubled
    service.answer(200, " 203.0.113.7\n");
    EXPECT_EQ(NetInfo::publicIP(), "203.0.113.7");
    service.answer(500, "198.51.100.2");
    EXPECT_EQ(NetInfo::publicIP(), "198.51.100.2");
    service.answer(200, "{\"ip\":\"203.0.113.7\"}");
    EXPECT_FALSE(NetInfo::publicIP().has_value());
    EXPECT_EQ(service.requests().at(0).method + " " + service.requests().at(0).path, "GET /v1/ip");
    test::ScopedEnv nobody("VELMORA_SERVICE_URL", "http://127.0.0.1:" + std::to_string(test::closedLoopbackPort()));
    EXPECT_FALSE(NetInfo::publicIP().has_value());

    Http::Request request;
    request.url = service.baseURL() + "/v1/ip";
    // A redirect to plain HTTP is not followed: the request fails rather than leave TLS.
    service.answer(302, "", service.baseURL() + "/elsewhere");
    EXPECT_FALSE(Http::perform(request));
    EXPECT_EQ(service.requests().back().path, "/v1/ip");
    service.answer(200, std::string(64, 'x'));
    request.maxBodyBytes = 64;
    EXPECT_EQ(Http::perform(request).value().body.size(), 64u);
    request.maxBodyBytes = 63;
    EXPECT_FALSE(Http::perform(request));
}

// What the user reads: the words that differ by platform come from its column (the macOS one is
// pinned with the wording table). A stopped server is not tested at all: see the application's test.
TEST(ConnectionTest, ReportsWhatAnswersOnTheRunningServersPort) {
    using platform::say;
    namespace words = platform::words;
    const std::string note = say(words::afterRestart), firewall = say(words::checkFirewall) + "\n\n";
    test::HttpServer service;
    test::ScopedEnv url("VELMORA_SERVICE_URL", service.baseURL());
    service.answer(200, "203.0.113.7\n");
    test::LoopbackListener listener;
    const std::string port = std::to_string(listener.port());
    // The listener is this test's own process: the server's, or another program's when the server
    // is another process.
    auto ours = runConnectionTest(listener.port(), true, {{"en0", "192.168.1.20"}, {"en1", "203.0.113.9"}},
                                  {static_cast<int>(::getpid())});
    EXPECT_EQ(ours.report(true), "The server is listening on port " + port + say(words::onThisMac) + "\n"
                                 "In Windows App, add a PC and type one of these:\n"
                                 "    192.168.1.20:" + port + "   (en0)\n"
                                 "    203.0.113.9:" + port + "   (en1)\n"
                                 "These work from computers on the same network. To connect from elsewhere you need a "
                                 "VPN or a port forward on your router.\n"
                                 "Your public address is 203.0.113.7. Forward port " + port +
                                     say(words::forwardToThisMac) + "\n" + firewall + note);
    EXPECT_EQ(ours.copyText(), "192.168.1.20:" + port);
    auto taken = runConnectionTest(listener.port(), true, {}, {static_cast<int>(::getppid())});
    EXPECT_EQ(taken.report(true).rfind("Port " + port + " is in use by another program. Quit it, or choose another "
                                       "port in Settings.\n", 0), 0u);

    // Nothing answers and only public addresses: no "same network" line; the login item is off.
    EXPECT_EQ(NetInfo::report(13389, true, {{"en0", "203.0.113.9"}}, false, std::nullopt, false),
              "The server says it is running but nothing answers on port 13389. Check the log.\n"
              "In Windows App, add a PC and type one of these:\n"
              "    203.0.113.9:13389   (en0)\n" + firewall + note +
                  "\nTurn on \"Open Velmora at Login\" in the menu, or it will not start after a restart at all.");
    EXPECT_EQ(NetInfo::report(3389, true, {}, true, std::nullopt, true),
              "The server is listening on port 3389" + say(words::onThisMac) + "\n" + say(words::noNetworkAddress) +
                  "\n" + firewall + note);
}

}  // namespace
}  // namespace velmora
