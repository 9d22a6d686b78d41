#include "server-linux/helper_loop.h"

#include "server-linux/helper_log.h"
#include "server-linux/stats_file.h"

#include <cerrno>
#include <csignal>
#include <cstring>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/signalfd.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace velmora::ServerHelper {

namespace {

// SIGUSR1 only arrives as the parent-death signal, on kernels without pidfd_open.
sigset_t helperSignals() {
    sigset_t set;
    sigemptyset(&set);
    for (int signal : {SIGTERM, SIGINT, SIGHUP, SIGUSR1}) sigaddset(&set, signal);
    return set;
}

// A descriptor that becomes readable when the parent ends; -1 when the parent is already gone
// (or this kernel has no pidfd, in which case the parent-death signal stands in).
int watchParent(pid_t parent, bool& gone) {
    // Through syscall(): this C library's <sys/pidfd.h> is not usable from C++.
    int fd = static_cast<int>(::syscall(SYS_pidfd_open, parent, 0));
    if (fd < 0 && errno != ESRCH) ::prctl(PR_SET_PDEATHSIG, SIGUSR1);
    // Looked at after the watch is in place: a parent that ended between start-up and now is seen
    // here. (Velmora itself may be process 1, in a container, so that alone says nothing.)
    if (::getppid() != parent) {
        gone = true;
        if (fd >= 0) ::close(fd);
        return -1;
    }
    return fd;
}

}  // namespace

void blockHelperSignals() {
    // An ignored signal inherited from whoever started us must still end the server.
    for (int signal : {SIGTERM, SIGINT, SIGHUP}) ::signal(signal, SIG_DFL);
    sigset_t set = helperSignals();
    ::sigprocmask(SIG_BLOCK, &set, nullptr);
}

Ending waitForEnding(bool watchParent_, pid_t parent, int serverEnded, StatsFile* stats) {
    sigset_t signals = helperSignals();
    int signalFd = ::signalfd(-1, &signals, SFD_CLOEXEC | SFD_NONBLOCK);
    if (signalFd < 0) {
        logLine(std::string("cannot wait for signals: ") + std::strerror(errno));
        return {};
    }
    bool parentGone = false;
    int parentFd = watchParent_ ? watchParent(parent, parentGone) : -1;
    Ending ending;
    while (!parentGone) {
        pollfd waits[4] = {{signalFd, POLLIN, 0},
                           {parentFd, POLLIN, 0},
                           {serverEnded, POLLIN, 0},
                           {stats ? stats->descriptor() : -1, POLLIN, 0}};
        if (::poll(waits, 4, -1) < 0) {
            if (errno == EINTR) continue;
            break;
        }
        if (waits[1].revents != 0) parentGone = true;
        signalfd_siginfo info{};
        if (::read(signalFd, &info, sizeof info) == static_cast<ssize_t>(sizeof info)) {
            int signal = static_cast<int>(info.ssi_signo);
            if (signal == SIGUSR1) {
                parentGone = watchParent_;
            } else {
                ending = {Ending::bySignal, signal};
                break;
            }
        }
        if (waits[2].revents != 0) {
            logLine("the shadow server ended by itself");
            ending = {Ending::serverEnded, 0};
            break;
        }
        if (waits[3].revents != 0) stats->writeDue();
    }
    if (parentGone) {
        logLine("Velmora is gone; ending the server");
        ending = {Ending::parentGone, 0};
    }
    if (parentFd >= 0) ::close(parentFd);
    ::close(signalFd);
    return ending;
}

void endProcess(const Ending& ending) {
    if (ending.kind == Ending::bySignal) {
        ::signal(ending.signal, SIG_DFL);
        sigset_t set;
        sigemptyset(&set);
        sigaddset(&set, ending.signal);
        ::pthread_sigmask(SIG_UNBLOCK, &set, nullptr);
        ::raise(ending.signal);
    }
    ::_exit(ending.kind == Ending::parentGone ? 0 : 1);
}

}  // namespace velmora::ServerHelper
