#include "permissions/perm_repair_plan.h"

namespace velmora {

PermRepairPlan permRepairPlan(const PermStatus& status, bool grantedBefore) {
    if (status.allOK()) return {};
    return PermRepairPlan{status.missingServices(), true, grantedBefore};
}

}  // namespace velmora
