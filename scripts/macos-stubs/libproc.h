#pragma once
// Stand-in for scripts/check-macos-syntax.sh, declared as Apple documents it (see CoreFoundation.h).
#include <stdint.h>
extern "C" int proc_listallpids(void* buffer, int buffersize);
extern "C" int proc_pidpath(int pid, void* buffer, uint32_t buffersize);
