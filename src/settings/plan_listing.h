#pragma once
// A readable listing of a launch plan for the command line: the arguments, one per line, an empty
// line, then each variable the plan sets differently from `own` (as NAME=VALUE) or removes from it
// (as -NAME), sorted by name; then, where this platform's server ignores settings, an empty line
// and the line naming them. The Windows-login entry is never shown.

#include "settings/launch_plan.h"

#include <string>

namespace velmora {

std::string planListing(const LaunchPlan& plan, const Environment& own);

}  // namespace velmora
