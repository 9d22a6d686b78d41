#include "platform/spawn_attributes.h"

#include <dlfcn.h>
#include <mutex>

namespace velmora::platform {

void setCleanSpawnFlags(posix_spawnattr_t* attributes) {
    posix_spawnattr_setflags(attributes, POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETSIGMASK);
}

void addCloseInheritedDescriptors(posix_spawn_file_actions_t* actions) {
    // glibc 2.34+: the child closes every descriptor from 3 up just before exec.
    posix_spawn_file_actions_addclosefrom_np(actions, 3);
}

bool disclaimResponsibility(posix_spawnattr_t* attributes) {
    // The same look-up as on macOS; it finds nothing here, so children run undisclaimed.
    using Disclaim = int (*)(posix_spawnattr_t*, int);
    static Disclaim disclaim = nullptr;
    static std::once_flag resolved;
    std::call_once(resolved, [] {
        disclaim = reinterpret_cast<Disclaim>(dlsym(RTLD_DEFAULT, "responsibility_spawnattrs_setdisclaim"));
    });
    return disclaim && disclaim(attributes, 1) == 0;
}

}  // namespace velmora::platform
