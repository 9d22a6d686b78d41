#include "platform/helper_location.h"

#include "core/environment.h"

namespace velmora::platform {

std::optional<std::string> serverExecutable(const std::optional<std::string>& helperApp) {
    auto override = environmentValue("KORVEN_CLI");
    if (override && !override->empty()) return *override;
    if (helperApp) return helperExecutablePath(*helperApp);
    return std::nullopt;
}

}  // namespace velmora::platform
