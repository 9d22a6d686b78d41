#pragma once
// What the work queues' threads wrap each task in. On macOS an autorelease pool: the Keychain and
// preferences calls may autorelease objects internally, and a worker thread that lives as long as
// the process would otherwise pile them up. Elsewhere the task just runs.

#include <functional>

namespace velmora::platform {

void runInPool(const std::function<void()>& task);

}  // namespace velmora::platform
