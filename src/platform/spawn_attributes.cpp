#include "platform/spawn_attributes.h"

#include <dlfcn.h>
#include <mutex>

namespace velmora::platform {

bool disclaimResponsibility(posix_spawnattr_t* attributes) {
    // A private macOS function, looked up once at run time; where it is absent (older macOS,
    // Linux) children simply run undisclaimed.
    using Disclaim = int (*)(posix_spawnattr_t*, int);
    static Disclaim disclaim = nullptr;
    static std::once_flag resolved;
    std::call_once(resolved, [] {
        disclaim = reinterpret_cast<Disclaim>(dlsym(RTLD_DEFAULT, "responsibility_spawnattrs_setdisclaim"));
    });
    return disclaim && disclaim(attributes, 1) == 0;
}

}  // namespace velmora::platform
