#include "platform/system_log.h"

#include <syslog.h>

namespace velmora::platform {

void systemLog(const std::string& message) {
    syslog(LOG_USER | LOG_ERR, "%s", message.c_str());
}

}  // namespace velmora::platform
