#include "platform/spawn_attributes.h"

#include <dlfcn.h>
#include <mutex>

namespace velmora::platform {

void setCleanSpawnFlags(posix_spawnattr_t* attributes) {
    // 0x400C: signals to default, empty mask, and no descriptor inherited unless a file action names it.
    posix_spawnattr_setflags(attributes,
                             POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_CLOEXEC_DEFAULT);
}

void addCloseInheritedDescriptors(posix_spawn_file_actions_t*) {
    // POSIX_SPAWN_CLOEXEC_DEFAULT already does it.
}

bool disclaimResponsibility(posix_spawnattr_t* attributes) {
    // A private function: looked up once at run time, absent on older systems.
    using Disclaim = int (*)(posix_spawnattr_t*, int);
    static Disclaim disclaim = nullptr;
    static std::once_flag resolved;
    std::call_once(resolved, [] {
        disclaim = reinterpret_cast<Disclaim>(dlsym(RTLD_DEFAULT, "responsibility_spawnattrs_setdisclaim"));
    });
    return disclaim && disclaim(attributes, 1) == 0;
}

}  // namespace velmora::platform
