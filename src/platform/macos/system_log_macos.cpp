#include "platform/system_log.h"

#include <os/log.h>

namespace velmora::platform {

void systemLog(const std::string& message) {
    os_log_error(OS_LOG_DEFAULT, "%{public}s", message.c_str());
}

}  // namespace velmora::platform
