#include "server-linux/shadow_runner.h"

#include "server-linux/server_translation.h"

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/signalfd.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

namespace velmora::ServerHelper {

namespace {

// How long a server told to end by a vanished parent gets before it is killed.
constexpr int parentGoneGraceSeconds = 5;

// SIGUSR1 only arrives as the parent-death signal, on kernels without pidfd_open.
sigset_t helperSignals() {
    sigset_t set;
    sigemptyset(&set);
    for (int signal : {SIGTERM, SIGINT, SIGHUP, SIGCHLD, SIGUSR1}) sigaddset(&set, signal);
    return set;
}

void closeDescriptorsFrom(int first) {
    if (::close_range(static_cast<unsigned>(first), ~0U, 0) == 0) return;
    long last = ::sysconf(_SC_OPEN_MAX);
    if (last < 0 || last > 65536) last = 65536;
    for (int fd = first; fd < last; ++fd) ::close(fd);
}

// Runs in the forked child: only async-signal-safe calls up to execve.
[[noreturn]] void becomeServer(const RunRequest& request, char* const* argv, char* const* envp,
                               pid_t helper) {
    // The server must not outlive the helper, even when the helper is killed outright.
    ::prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (::getppid() != helper) ::_exit(127);
    struct sigaction standard{};
    standard.sa_handler = SIG_DFL;
    for (int signal = 1; signal < NSIG; ++signal) ::sigaction(signal, &standard, nullptr);
    sigset_t none;
    sigemptyset(&none);
    ::sigprocmask(SIG_SETMASK, &none, nullptr);
    int keep = 3;
    if (request.passOn == 3) {
        ::fcntl(3, F_SETFD, 0);
        keep = 4;
    } else if (request.passOn >= 0) {
        if (::dup2(request.passOn, 3) != 3) ::_exit(127);  // dup2 leaves the copy inheritable
        keep = 4;
    }
    closeDescriptorsFrom(keep);
    ::execve(request.executable.c_str(), argv, envp);
    const char* reason = std::strerror(errno);
    const char* lead = "velmora-server: could not start ";
    ssize_t ignored = ::write(2, lead, std::strlen(lead));
    ignored = ::write(2, request.executable.data(), request.executable.size());
    ignored = ::write(2, ": ", 2);
    ignored = ::write(2, reason, std::strlen(reason));
    ignored = ::write(2, "\n", 1);
    (void)ignored;
    ::_exit(127);
}

double monotonicSeconds() {
    timespec now{};
    ::clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) / 1e9;
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
    // An ignored signal inherited from whoever started us must still reach the server.
    for (int signal : {SIGTERM, SIGINT, SIGHUP}) ::signal(signal, SIG_DFL);
    sigset_t set = helperSignals();
    ::sigprocmask(SIG_BLOCK, &set, nullptr);
}

int runShadowServer(const RunRequest& request) {
    std::vector<std::string> argStrings{request.executable};
    argStrings.insert(argStrings.end(), request.arguments.begin(), request.arguments.end());
    std::vector<std::string> envStrings;
    for (const auto& [name, value] : request.environment) envStrings.push_back(name + "=" + value);
    std::vector<char*> argv, envp;
    for (auto& a : argStrings) argv.push_back(a.data());
    argv.push_back(nullptr);
    for (auto& e : envStrings) envp.push_back(e.data());
    envp.push_back(nullptr);

    // Made before the fork: the server's end, however early, is then a readable signalfd.
    sigset_t signals = helperSignals();
    int signalFd = ::signalfd(-1, &signals, SFD_CLOEXEC | SFD_NONBLOCK);
    if (signalFd < 0) {
        std::fprintf(stderr, "velmora-server: cannot wait for signals: %s\n", std::strerror(errno));
        return 127;
    }
    bool parentGone = false;
    int parentFd = request.watchParent ? watchParent(request.parent, parentGone) : -1;

    std::fflush(nullptr);
    pid_t helper = ::getpid();
    pid_t child = ::fork();
    if (child < 0) {
        std::fprintf(stderr, "velmora-server: could not start %s: %s\n", request.executable.c_str(),
                     std::strerror(errno));
        return 127;
    }
    if (child == 0) becomeServer(request, argv.data(), envp.data(), helper);

    double killAt = 0;  // when a server told to end by a vanished parent is killed; 0: not yet
    bool killed = false;
    for (;;) {
        int status = 0;
        pid_t ended = ::waitpid(child, &status, WNOHANG);
        if (ended == child) {
            if (parentFd >= 0) ::close(parentFd);
            ::close(signalFd);
            return exitCodeOf(status);
        }
        if (ended < 0 && errno != EINTR) return 1;

        if (request.watchParent && parentGone && killAt == 0) {
            std::fprintf(stderr, "velmora-server: Velmora is gone; ending the server\n");
            ::kill(child, SIGTERM);
            killAt = monotonicSeconds() + parentGoneGraceSeconds;
        }
        int timeout = -1;  // nothing to time: sleep until something happens
        if (killAt != 0 && !killed) {
            double left = killAt - monotonicSeconds();
            if (left <= 0) {
                ::kill(child, SIGKILL);
                killed = true;
            } else {
                timeout = static_cast<int>(left * 1000) + 1;
            }
        }

        pollfd waits[2] = {{signalFd, POLLIN, 0}, {parentFd, POLLIN, 0}};
        if (::poll(waits, 2, timeout) < 0 && errno != EINTR) return 1;
        if (parentFd >= 0 && waits[1].revents != 0) {
            parentGone = true;
            ::close(parentFd);
            parentFd = -1;
        }
        signalfd_siginfo info{};
        while (::read(signalFd, &info, sizeof info) == static_cast<ssize_t>(sizeof info)) {
            int signal = static_cast<int>(info.ssi_signo);
            if (signal == SIGTERM || signal == SIGINT || signal == SIGHUP) ::kill(child, signal);
            if (signal == SIGUSR1 && request.watchParent) parentGone = true;
        }
    }
}

}  // namespace velmora::ServerHelper
