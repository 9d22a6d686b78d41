#pragma once
// Stand-in for scripts/check-macos-syntax.sh, declared as Apple documents it (see CoreFoundation.h).
#include <stdint.h>
extern "C" int _NSGetExecutablePath(char* buf, uint32_t* bufsize);
