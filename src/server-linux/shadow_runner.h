#pragma once
// Runs the shadow server as this helper's child and stands in for it: signals are passed on, the
// helper ends with the server's exit code, and with parent watching on both end when the parent
// (Velmora) is gone, however it ended.

#include "core/environment.h"

#include <string>
#include <sys/types.h>
#include <vector>

namespace velmora::ServerHelper {

// The signals the helper handles itself; block them (blockHelperSignals) before anything else,
// so that none arriving early is lost.
void blockHelperSignals();

struct RunRequest {
    std::string executable;
    std::vector<std::string> arguments;  // without the executable's own path
    Environment environment;              // the child's complete environment
    bool watchParent = false;
    pid_t parent = 0;                     // the parent to watch, read at start-up
    int passOn = -1;                      // a descriptor the server gets as descriptor 3, or -1
};

// Starts the server and waits for its end; returns its exit code (128 + signal when it died of
// one), or 127 when it could not be started. Standard input, output and error are inherited, and
// `passOn` as descriptor 3; no other descriptor is. While nothing happens the helper sleeps: it
// waits for the server, its parent and signals in one poll without a time-out.
int runShadowServer(const RunRequest& request);

}  // namespace velmora::ServerHelper
