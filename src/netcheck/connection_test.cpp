#include "netcheck/connection_test.h"

#include <algorithm>

namespace velmora {

std::string ConnectionTest::report(bool opensAtLogin) const {
    return NetInfo::report(port, running, addresses, listening, publicIP, opensAtLogin, takenByOther);
}

std::string ConnectionTest::copyText() const {
    if (addresses.empty()) return {};
    return addresses.front().ip + ":" + std::to_string(port);
}

ConnectionTest runConnectionTest(std::int64_t port, bool running, std::vector<NetInfo::Address> addresses,
                                 const std::vector<int>& serverProcesses) {
    ConnectionTest test;
    test.port = port;
    test.running = running;
    test.addresses = std::move(addresses);
    if (running) {
        test.listening = port >= 0 && port <= INT32_MAX && NetInfo::canConnect("127.0.0.1", static_cast<std::int32_t>(port));
        // A listener that is none of the server's processes is another program's (unknown: ours).
        auto listeners = NetInfo::listeningProcesses(port);
        test.takenByOther = test.listening && !serverProcesses.empty() && !listeners.empty() &&
                            std::none_of(listeners.begin(), listeners.end(), [&](int pid) {
                                return std::find(serverProcesses.begin(), serverProcesses.end(), pid) !=
                                       serverProcesses.end();
                            });
        test.publicIP = NetInfo::publicIP();
    }
    return test;
}

}  // namespace velmora
