#include "platform/spawn_attributes.h"


namespace velmora::platform {

void setCleanSpawnFlags(posix_spawnattr_t* attributes) {
    posix_spawnattr_setflags(attributes, POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETSIGMASK);
}

void addCloseInheritedDescriptors(posix_spawn_file_actions_t* actions) {
    // glibc 2.34+: the child closes every descriptor from 3 up just before exec.
    posix_spawn_file_actions_addclosefrom_np(actions, 3);
}

}  // namespace velmora::platform

namespace velmora::platform {

bool systemTracksResponsibility() { return false; }

}  // namespace velmora::platform
