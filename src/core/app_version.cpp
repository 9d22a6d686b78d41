#include "core/app_version.h"

namespace velmora {

std::string appVersion() { return VELMORA_VERSION; }

}  // namespace velmora
