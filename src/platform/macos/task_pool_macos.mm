// Objective-C++ for the pool block; it drains whatever the task autoreleased when the task returns.

#include "platform/task_pool.h"

namespace velmora::platform {

void runInPool(const std::function<void()>& task) {
    @autoreleasepool {
        task();
    }
}

}  // namespace velmora::platform
