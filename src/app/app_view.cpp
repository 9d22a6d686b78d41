#include "app/app_view.h"

#include "core/text.h"

namespace velmora {

std::string lacksPermissionText(const PermissionsRequest& request) {
    std::string missing = request.lastKnown ? text::join(request.lastKnown->missingServices(), ", ") : "unknown";
    return "Velmora Server lacks permission (" + missing + ")";
}

}  // namespace velmora
