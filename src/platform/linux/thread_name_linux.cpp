#include "platform/thread_name.h"

#include <pthread.h>

namespace velmora::platform {

void setCurrentThreadName(const std::string& name) {
    // Linux allows 15 bytes plus the terminator; longer names are cut rather than refused.
    pthread_setname_np(pthread_self(), name.substr(0, 15).c_str());
}

}  // namespace velmora::platform
