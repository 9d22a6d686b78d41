#pragma once
// The background half of the "Test Connection" action: the checks, made in order, and the values
// the report is written from. The caller lists the addresses and reads the running state on the
// main thread, runs this on the global queue, and shows the result back on the main thread.

#include "netcheck/net_info.h"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace velmora {

struct ConnectionTest {
    std::int64_t port = 0;
    bool running = false;
    std::vector<NetInfo::Address> addresses;
    bool listening = false;
    bool takenByOther = false;  // what answers is another program's listener, not the server's
    std::optional<std::string> publicIP;

    // NetInfo::report of these values.
    std::string report(bool opensAtLogin) const;
    // What "Copy Address" puts on the clipboard: the first address's ip, ":" and the port; empty
    // when there is no address (the button then does nothing).
    std::string copyText() const;
};

// When running: whether 127.0.0.1:port answers (2 s) and whether the listener is one of
// `serverProcesses` (the server and its children), then the public address (up to 5 s). When not
// running none of these checks is made.
ConnectionTest runConnectionTest(std::int64_t port, bool running, std::vector<NetInfo::Address> addresses,
                                 const std::vector<int>& serverProcesses = {});

}  // namespace velmora
