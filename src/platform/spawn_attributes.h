#pragma once
// The platform's part of starting a child: which spawn flags make it start clean, how it is kept
// from inheriting our descriptors, and whether it can be made responsible for itself (disclaimed).

#include <spawn.h>

namespace velmora::platform {

// Sets the flags for every signal at its default and none blocked, plus, where the system has it,
// close-on-exec for every descriptor not named by the file actions.
void setCleanSpawnFlags(posix_spawnattr_t* attributes);

// Appended after the standard descriptors' actions: closes everything from descriptor 3 up in the
// child where the flags above can't do it.
void addCloseInheritedDescriptors(posix_spawn_file_actions_t* actions);

// Makes the child responsible for itself in the system's privacy accounting. True when that worked;
// false when the system has no such thing or it failed (the child then runs undisclaimed).
bool disclaimResponsibility(posix_spawnattr_t* attributes);

}  // namespace velmora::platform
