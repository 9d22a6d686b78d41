#include "support/e2e_harness.h"

#include "netcheck/net_info.h"
#include "support/run_command.h"
#include "support/temp_home.h"

#include <algorithm>

#include <cerrno>
#include <chrono>
#include <csignal>
#include <fcntl.h>
#include <filesystem>
#include <poll.h>
#include <sstream>
#include <stdexcept>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

namespace velmora::test {

namespace {

using Clock = std::chrono::steady_clock;

// Real processes take real time to start and end; the loops below poll them within a bound.
constexpr auto pollInterval = std::chrono::milliseconds(50);

Clock::time_point deadlineAfter(double seconds) {
    return Clock::now() + std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(seconds));
}

// The fields of /proc/<pid>/stat after the command name: state, ppid, ...
std::optional<std::pair<char, pid_t>> stateAndParent(pid_t pid) {
    std::string text = readFile("/proc/" + std::to_string(pid) + "/stat");
    auto close = text.rfind(')');
    if (close == std::string::npos) return std::nullopt;
    std::istringstream rest(text.substr(close + 1));
    char state = 0;
    pid_t parent = 0;
    if (!(rest >> state >> parent)) return std::nullopt;
    return std::make_pair(state, parent);
}

std::vector<pid_t> allPids() {
    std::vector<pid_t> pids;
    std::error_code error;
    for (const auto& entry : std::filesystem::directory_iterator("/proc", error)) {
        const std::string name = entry.path().filename().string();
        if (!name.empty() && name.find_first_not_of("0123456789") == std::string::npos)
            pids.push_back(static_cast<pid_t>(std::stol(name)));
    }
    return pids;
}

}  // namespace

std::string missingE2ePrerequisite() {
    for (const char* path : {"/usr/bin/Xvfb", "/usr/bin/xfreerdp", "/usr/bin/openssl"})
        if (::access(path, X_OK) != 0)
            return std::string(path) + " is missing (install xvfb, freerdp2-x11, openssl)";
    return {};
}

BackgroundProcess::BackgroundProcess(const std::vector<std::string>& argv,
                                     const std::map<std::string, std::optional<std::string>>& environment,
                                     const std::string& outputFile, int descriptor3) {
    std::vector<std::string> envStrings = environmentStrings(environment);
    std::vector<std::string> argStrings = argv;
    std::vector<char*> args = execVector(argStrings);
    std::vector<char*> envp = execVector(envStrings);

    int out = ::open(outputFile.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0644);
    int in = ::open("/dev/null", O_RDONLY | O_CLOEXEC);
    pid_ = ::fork();
    if (pid_ == 0) {
        ::setpgid(0, 0);  // its own group, so that a test's signals to it reach nothing else
        ::dup2(in, 0);
        ::dup2(out, 1);
        ::dup2(out, 2);
        if (descriptor3 >= 0) ::dup2(descriptor3, 3);
        sigset_t none;
        sigemptyset(&none);
        ::sigprocmask(SIG_SETMASK, &none, nullptr);
        ::signal(SIGINT, SIG_DFL);
        ::signal(SIGTERM, SIG_DFL);
        ::execve(args[0], args.data(), envp.data());
        ::_exit(127);
    }
    if (in >= 0) ::close(in);
    if (out >= 0) ::close(out);
    if (pid_ < 0) throw std::runtime_error("fork failed");
}

BackgroundProcess::~BackgroundProcess() {
    if (exitCode_ || pid_ <= 0) return;
    ::kill(pid_, SIGKILL);
    int status = 0;
    while (::waitpid(pid_, &status, 0) < 0 && errno == EINTR) {}
}

std::optional<int> BackgroundProcess::waitForExit(double seconds) {
    if (exitCode_) return exitCode_;
    auto deadline = deadlineAfter(seconds);
    for (;;) {
        int status = 0;
        pid_t ended = ::waitpid(pid_, &status, WNOHANG);
        if (ended == pid_) {
            exitCode_ = WIFSIGNALED(status) ? 128 + WTERMSIG(status) : WEXITSTATUS(status);
            return exitCode_;
        }
        if (Clock::now() >= deadline) return std::nullopt;
        std::this_thread::sleep_for(pollInterval);
    }
}

void BackgroundProcess::signal(int signal) const {
    if (!exitCode_ && pid_ > 0) ::kill(pid_, signal);
}

Xvfb::Xvfb() {
    // Xvfb writes the display number it took to descriptor 3 once it accepts clients. -noreset:
    // by default it resets when its last client leaves, and a client connecting meanwhile fails.
    int ready[2];
    if (::pipe2(ready, O_CLOEXEC) != 0) return;
    auto candidate = std::make_unique<BackgroundProcess>(
        std::vector<std::string>{"/usr/bin/Xvfb", "-displayfd", "3", "-screen", "0", "1024x768x24", "-nolisten", "tcp", "-noreset"},
        std::map<std::string, std::optional<std::string>>{}, "/dev/null", ready[1]);
    ::close(ready[1]);
    std::string number;
    pollfd wait{ready[0], POLLIN, 0};
    auto deadline = deadlineAfter(30);
    while (Clock::now() < deadline && number.find('\n') == std::string::npos) {
        if (::poll(&wait, 1, 100) <= 0) continue;
        char buffer[32];
        ssize_t n = ::read(ready[0], buffer, sizeof buffer);
        if (n <= 0) break;
        number.append(buffer, static_cast<std::size_t>(n));
    }
    ::close(ready[0]);
    if (number.find('\n') == std::string::npos) return;  // the destructor of candidate ends it
    display_ = ":" + number.substr(0, number.find('\n'));
    process_ = std::move(candidate);
}

Xvfb::~Xvfb() {
    if (process_) {
        process_->signal(SIGTERM);
        process_->waitForExit(10);
    }
}

bool eventually(const std::function<bool()>& condition, double seconds) {
    for (auto deadline = deadlineAfter(seconds); !condition(); std::this_thread::sleep_for(pollInterval))
        if (Clock::now() >= deadline) return false;
    return true;
}

bool waitForListening(int port, double seconds, BackgroundProcess* owner) {
    bool ended = false;
    return eventually([&] { return NetInfo::canConnect("127.0.0.1", port) || (ended = owner && owner->waitForExit(0)); },
                      seconds) &&
           !ended;
}

bool processAlive(pid_t pid) {
    auto state = stateAndParent(pid);
    return state && state->first != 'Z' && state->first != 'X';
}

bool waitForProcessGone(pid_t pid, double seconds) {
    return eventually([&] { return !processAlive(pid); }, seconds);
}

pid_t parentOf(pid_t pid) {
    auto state = stateAndParent(pid);
    return state ? state->second : -1;
}

std::vector<pid_t> childrenOf(pid_t pid) {
    std::vector<pid_t> children;
    for (pid_t candidate : allPids()) {
        auto state = stateAndParent(candidate);
        if (state && state->second == pid && state->first != 'Z') children.push_back(candidate);
    }
    return children;
}

std::string commandLineOf(pid_t pid) {
    std::string text = readFile("/proc/" + std::to_string(pid) + "/cmdline");
    std::replace(text.begin(), text.end(), '\0', ' ');
    return text;
}

int rdpClient(const std::string& display, int port, const std::string& user, const std::string& password,
              const std::string& security, bool authOnly) {
    // xfreerdp opens the display even when it only authenticates.
    std::vector<std::string> argv{"/usr/bin/timeout", "60", "/usr/bin/xfreerdp", "/v:127.0.0.1:" + std::to_string(port),
                                  "/u:" + user, "/p:" + password, "/cert:ignore", "/sec:" + security};
    if (authOnly) argv.push_back("+auth-only");
    return runCommand(argv, {{"DISPLAY", display}}).exitCode;
}

std::vector<std::string> rdpSessionArguments(int port, const std::string& user, const std::string& password,
                                             const std::vector<std::string>& extra) {
    std::vector<std::string> argv{"/usr/bin/xfreerdp", "/v:127.0.0.1:" + std::to_string(port), "/u:" + user,
                                  "/p:" + password, "/cert:ignore", "/sec:tls"};
    argv.insert(argv.end(), extra.begin(), extra.end());
    return argv;
}

}  // namespace velmora::test
