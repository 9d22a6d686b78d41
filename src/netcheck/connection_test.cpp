#include "netcheck/connection_test.h"

namespace velmora {

std::string ConnectionTest::report(bool opensAtLogin) const {
    return NetInfo::report(port, running, addresses, listening, publicIP, opensAtLogin);
}

std::string ConnectionTest::copyText() const {
    if (addresses.empty()) return {};
    return addresses.front().ip + ":" + std::to_string(port);
}

ConnectionTest runConnectionTest(std::int64_t port, bool running, std::vector<NetInfo::Address> addresses) {
    ConnectionTest test;
    test.port = port;
    test.running = running;
    test.addresses = std::move(addresses);
    if (running) {
        test.listening = port >= 0 && port <= INT32_MAX && NetInfo::canConnect("127.0.0.1", static_cast<std::int32_t>(port));
        test.publicIP = NetInfo::publicIP();
    }
    return test;
}

}  // namespace velmora
