#pragma once
// The status menu's fixed structure and the texts updateUI computes for it.

#include "app/app_view.h"
#include "netcheck/net_info.h"

#include <cstdint>
#include <string>
#include <vector>

namespace velmora::StatusMenu {

// The items in menu order; "Check for Updates…" only when an updater is available.
std::vector<MenuItem> items(bool updaterAvailable);

// The first line: "Running · <first address>:<port>" or "Running on port <port> (no network)"
// while running, else `idle` (the supervisor's "Checking permissions…", last error or "Stopped").
// `port` is the stored value, unvalidated.
std::string statusLine(bool running, const std::string& idle, std::int64_t port,
                       const std::vector<NetInfo::Address>& addresses);

inline std::string toggleTitle(bool running) { return running ? "Stop Server" : "Start Server"; }

}  // namespace velmora::StatusMenu
