#include "netcheck/service_url.h"

#include "core/environment.h"

namespace velmora {

std::string serviceBaseURL() {
    std::string base = environmentValue("VELMORA_SERVICE_URL").value_or(VELMORA_DEFAULT_SERVICE_URL);
    if (base.empty()) base = VELMORA_DEFAULT_SERVICE_URL;
    while (!base.empty() && base.back() == '/') base.pop_back();
    return base;
}

}  // namespace velmora
