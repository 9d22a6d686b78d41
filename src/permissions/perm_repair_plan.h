#pragma once
// What a repair does for a given status.

#include "permissions/perm_status.h"

#include <string>
#include <vector>

namespace velmora {

struct PermRepairPlan {
    std::vector<std::string> resetServices;  // privacy entries of the helper to reset, in order
    bool request = false;                    // then run the probe in "request" mode
    bool forgotten = false;                  // granted once, since dropped by the system

    bool operator==(const PermRepairPlan&) const = default;
};

// Nothing to do when all is granted (whatever grantedBefore says); otherwise reset what is missing,
// request afresh, and say whether it had been granted before.
PermRepairPlan permRepairPlan(const PermStatus& status, bool grantedBefore);

}  // namespace velmora
