#include "platform/spawn_attributes.h"


namespace velmora::platform {

void setCleanSpawnFlags(posix_spawnattr_t* attributes) {
    // 0x400C: signals to default, empty mask, and no descriptor inherited unless a file action names it.
    posix_spawnattr_setflags(attributes,
                             POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_CLOEXEC_DEFAULT);
}

void addCloseInheritedDescriptors(posix_spawn_file_actions_t*) {
    // POSIX_SPAWN_CLOEXEC_DEFAULT already does it.
}

}  // namespace velmora::platform

namespace velmora::platform {

bool systemTracksResponsibility() { return true; }

}  // namespace velmora::platform
