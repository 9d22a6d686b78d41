#include "platform/task_pool.h"

namespace velmora::platform {

void runInPool(const std::function<void()>& task) { task(); }

}  // namespace velmora::platform
