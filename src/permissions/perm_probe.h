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

// Why a permission is missing, where the server says so (a "cause=<word> [display]" line before
// its answer): the word (Contract::Probe::Cause) and the display it concerns, if any.
struct ProbeCause {
    std::string word;
    std::string display;
    bool operator==(const ProbeCause&) const = default;
};

// The last cause line of the output; absent when there is none.
std::optional<ProbeCause> parseProbeCause(const std::string& output);

// What the user is told about a missing permission: the cause in plain words when the server gave
// one, else that the server lacks permission (naming what is missing).
std::string missingPermissionText(const std::optional<PermStatus>& status, const std::optional<ProbeCause>& cause);

// Strict: the last line that is exactly two space-separated pieces "screen=0|1" and "input=0|1"
// wins; lines end at LF, CR, CR LF, VT, FF, U+0085, U+2028 and U+2029. Absent when none qualifies.
std::optional<PermStatus> parsePermProbe(const std::string& output);

}  // namespace velmora
