#pragma once
// What the helper's main thread does while the shadow server runs on the library's threads: it
// sleeps in one poll, without a time-out, until a signal, its parent's end, the server's own end
// or a due statistics write wakes it.

#include <sys/types.h>

namespace velmora::ServerHelper {

class StatsFile;

// The signals the helper handles itself (SIGTERM, SIGINT, SIGHUP and the parent-death signal).
// Blocked before any thread starts, so that every thread inherits the mask and they only reach
// the loop's signalfd.
void blockHelperSignals();

struct Ending {
    enum Kind { bySignal, parentGone, serverEnded, failure } kind = failure;
    int signal = 0;  // for bySignal
};

// `parent` is watched when `watchParent`; `serverEnded` is readable once the server has ended by
// itself; `stats` may be null.
Ending waitForEnding(bool watchParent, pid_t parent, int serverEnded, StatsFile* stats);

// Ends the process the way an ending asks: a signal's default action (the exit status Velmora
// sees is that of a process killed by it), 0 when the parent is gone, 1 otherwise.
[[noreturn]] void endProcess(const Ending& ending);

}  // namespace velmora::ServerHelper
