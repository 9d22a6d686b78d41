#pragma once
// Small shell scripts that play the children in these tests, and what tests check about them.

#include "support/temp_home.h"

#include <csignal>
#include <string>
#include <sys/stat.h>
#include <sys/types.h>

namespace velmora::test {

// Writes an executable /bin/sh script at `path`.
inline std::string writeScript(const std::string& path, const std::string& body) {
    writeFile(path, "#!/bin/sh\n" + body);
    ::chmod(path.c_str(), 0755);
    return path;
}

// True while a process with this id exists (zombies included).
inline bool processExists(pid_t pid) { return pid > 0 && ::kill(pid, 0) == 0; }

}  // namespace velmora::test
