#pragma once
// The server's command line and environment for one settings snapshot.

#include "core/environment.h"
#include "core/server_contract.h"
#include "settings/server_settings.h"

#include <string>
#include <vector>

namespace velmora {

struct LaunchPlan {
    std::vector<std::string> arguments;  // without the executable's own path
    Environment environment;              // the child's complete environment

    bool operator==(const LaunchPlan&) const = default;
};

// The most RDP clients the server accepts at once.
inline constexpr int maxConnections = Contract::maxConnections;

// A pure function: the same inputs always give the same plan.
LaunchPlan buildLaunchPlan(const Environment& baseEnvironment, const ServerSettings& settings);

// The server statistics file; asking creates its folder (a failure is ignored).
std::string statsPath();

}  // namespace velmora
