#include "server-linux/shadow_runner.h"

#include "server-linux/server_translation.h"

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

namespace velmora::ServerHelper {

namespace {

// How often the parent is looked at, and how long a server told to end by a vanished parent gets
// before it is killed.
constexpr long pollMilliseconds = 200;
constexpr int parentGoneGraceSeconds = 5;

sigset_t helperSignals() {
    sigset_t set;
    sigemptyset(&set);
    for (int signal : {SIGTERM, SIGINT, SIGHUP, SIGCHLD}) sigaddset(&set, signal);
    return set;
}

void closeInheritedDescriptors() {
    if (::close_range(3U, ~0U, 0) == 0) return;
    long last = ::sysconf(_SC_OPEN_MAX);
    if (last < 0 || last > 65536) last = 65536;
    for (int fd = 3; fd < last; ++fd) ::close(fd);
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
    closeInheritedDescriptors();
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

    std::fflush(nullptr);
    pid_t helper = ::getpid();
    pid_t child = ::fork();
    if (child < 0) {
        std::fprintf(stderr, "velmora-server: could not start %s: %s\n", request.executable.c_str(),
                     std::strerror(errno));
        return 127;
    }
    if (child == 0) becomeServer(request, argv.data(), envp.data(), helper);

    sigset_t signals = helperSignals();
    const timespec poll{0, pollMilliseconds * 1000000L};
    double killAt = 0;  // when a server told to end by a vanished parent is killed; 0: not yet
    for (;;) {
        int status = 0;
        pid_t ended = ::waitpid(child, &status, WNOHANG);
        if (ended == child) return exitCodeOf(status);
        if (ended < 0 && errno != EINTR) return 1;

        if (request.watchParent && killAt == 0 && ::getppid() != request.parent) {
            std::fprintf(stderr, "velmora-server: Velmora is gone; ending the server\n");
            ::kill(child, SIGTERM);
            killAt = monotonicSeconds() + parentGoneGraceSeconds;
        }
        if (killAt != 0 && monotonicSeconds() >= killAt) ::kill(child, SIGKILL);

        int signal = ::sigtimedwait(&signals, nullptr, &poll);
        if (signal == SIGTERM || signal == SIGINT || signal == SIGHUP) ::kill(child, signal);
    }
}

}  // namespace velmora::ServerHelper
