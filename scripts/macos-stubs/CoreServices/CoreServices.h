#pragma once
// Stand-in for scripts/check-macos-syntax.sh, declared as Apple documents it (see CoreFoundation.h).
#include <CoreFoundation/CoreFoundation.h>
extern "C" OSStatus LSRegisterURL(CFURLRef inURL, Boolean inUpdate);
