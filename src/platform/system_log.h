#pragma once
#include <string>

namespace velmora::platform {

// One line for the system's log (syslog on Linux, the unified log on macOS), for the rare failures
// that must not go to the application's own log.
void systemLog(const std::string& message);

}  // namespace velmora::platform
