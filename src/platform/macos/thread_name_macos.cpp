#include "platform/thread_name.h"

#include <pthread.h>

namespace velmora::platform {

void setCurrentThreadName(const std::string& name) { pthread_setname_np(name.c_str()); }

}  // namespace velmora::platform
