#pragma once
// Stand-in for scripts/check-macos-syntax.sh, declared as Apple documents it (see CoreFoundation.h).
#include <stddef.h>
extern "C" int sysctlbyname(const char* name, void* oldp, size_t* oldlenp, void* newp, size_t newlen);
