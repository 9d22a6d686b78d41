#pragma once
// The server's probe mode: how it is run, and how its answer line "screen=<0|1> input=<0|1>" is read.

#include "core/environment.h"
#include "permissions/perm_status.h"
#include "settings/launch_plan.h"

#include <optional>
#include <string>

namespace velmora {

// "/port:33895", and the base environment with MAC_SHADOW_PERMS = mode and WLOG_LEVEL = "ERROR".
LaunchPlan permProbeLaunch(const std::string& mode, const Environment& baseEnvironment);

// Strict: the last line that is exactly two space-separated pieces "screen=0|1" and "input=0|1"
// wins; lines end at LF, CR, CR LF, VT, FF, U+0085, U+2028 and U+2029. Absent when none qualifies.
std::optional<PermStatus> parsePermProbe(const std::string& output);

}  // namespace velmora
