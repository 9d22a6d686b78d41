#include "process/spawn.h"

#include "core/text.h"
#include "platform/descriptors.h"
#include "platform/paths.h"
#include "platform/processes.h"
#include "platform/spawn_attributes.h"

#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

namespace velmora {

// The one place allowed to make SpawnedProcess handles and start their watchers.
struct SpawnAccess {
    static std::shared_ptr<SpawnedProcess> make(pid_t pid, bool disclaimed) {
        return std::shared_ptr<SpawnedProcess>(new SpawnedProcess(pid, disclaimed));
    }
    static void watch(std::shared_ptr<SpawnedProcess> process, std::shared_ptr<MainQueueLink> mainQueue) {
        SpawnedProcess::watch(std::move(process), std::move(mainQueue));
    }
};

namespace Spawn {

namespace {

// strerror_r comes in a GNU form (returns the text) and an XSI form (fills the buffer).
[[maybe_unused]] std::string strerrorResult(char* text, const char*) { return text ? text : ""; }
[[maybe_unused]] std::string strerrorResult(int result, const char* buffer) { return result == 0 ? buffer : ""; }

std::string failureText(int code) {
    char buffer[256] = {};
    std::string text = strerrorResult(strerror_r(code, buffer, sizeof buffer), buffer);
    return text.empty() ? "error " + std::to_string(code) : text;
}

// Owns the NUL-terminated copies handed to posix_spawn and frees them on every path out.
class CStrings {
public:
    void add(const std::string& text) { storage_.push_back(text); }
    char* const* vector() {
        pointers_.clear();
        for (auto& text : storage_) pointers_.push_back(text.data());
        pointers_.push_back(nullptr);
        return pointers_.data();
    }

private:
    std::vector<std::string> storage_;
    std::vector<char*> pointers_;
};

// Attributes and file actions, destroyed whatever happens.
struct SpawnSetup {
    posix_spawnattr_t attributes;
    posix_spawn_file_actions_t actions;
    SpawnSetup() {
        posix_spawnattr_init(&attributes);
        posix_spawn_file_actions_init(&actions);
    }
    ~SpawnSetup() {
        posix_spawn_file_actions_destroy(&actions);
        posix_spawnattr_destroy(&attributes);
    }
    SpawnSetup(const SpawnSetup&) = delete;
    SpawnSetup& operator=(const SpawnSetup&) = delete;
};

// Most output is plain ASCII; this check vectorises, the UTF-8 one can't.
bool isAscii(const std::string& bytes) {
    unsigned char any = 0;
    for (char c : bytes) any |= static_cast<unsigned char>(c);
    return any < 0x80;
}

double secondsSince(std::chrono::steady_clock::time_point start) {
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

}  // namespace

Failure::Failure(int code) : std::runtime_error("Could not start the server: " + failureText(code)), code_(code) {}

std::string Failure::reason() const { return failureText(code_); }

std::shared_ptr<SpawnedProcess> start(const std::string& path, const std::vector<std::string>& arguments,
                                      const Environment& environment, std::optional<int> stdoutFd,
                                      std::optional<int> stderrFd, bool disclaim,
                                      std::shared_ptr<MainQueueLink> onExitQueue) {
    SpawnSetup setup;
    platform::setCleanSpawnFlags(&setup.attributes);
    sigset_t all;
    sigset_t none;
    sigfillset(&all);
    sigemptyset(&none);
    posix_spawnattr_setsigdefault(&setup.attributes, &all);
    posix_spawnattr_setsigmask(&setup.attributes, &none);

    bool disclaimed = disclaim && platform::disclaimResponsibility(&setup.attributes);

    posix_spawn_file_actions_addopen(&setup.actions, 0, "/dev/null", O_RDONLY, 0);
    if (stdoutFd) posix_spawn_file_actions_adddup2(&setup.actions, *stdoutFd, 1);
    else posix_spawn_file_actions_addopen(&setup.actions, 1, "/dev/null", O_WRONLY, 0);
    if (stderrFd) posix_spawn_file_actions_adddup2(&setup.actions, *stderrFd, 2);
    else posix_spawn_file_actions_addopen(&setup.actions, 2, "/dev/null", O_WRONLY, 0);
    platform::addCloseInheritedDescriptors(&setup.actions);

    CStrings argv;
    argv.add(path);
    for (const auto& argument : arguments) argv.add(argument);
    CStrings envp;
    for (const auto& [name, value] : environment) envp.add(name + "=" + value);

    pid_t pid = 0;
    int result = posix_spawn(&pid, path.c_str(), &setup.actions, &setup.attributes, argv.vector(), envp.vector());
    if (result != 0) throw Failure(result);

    auto process = SpawnAccess::make(pid, disclaimed);
    try {
        // The watcher holds the queue's link, not the queue: it may outlive the application's quit.
        std::thread(SpawnAccess::watch, process, std::move(onExitQueue)).detach();
    } catch (const std::system_error&) {
        // Without a watcher nobody would reap the child: end it now and report the start as failed.
        ::kill(pid, SIGKILL);
        while (::waitpid(pid, nullptr, 0) < 0 && errno == EINTR) {
        }
        throw Failure(EAGAIN);
    }
    return process;
}

std::optional<std::string> output(const std::string& path, const std::vector<std::string>& arguments,
                                  const Environment& environment, double timeout) {
    int ends[2];
    // Close-on-exec from the start: other threads may spawn meanwhile, and their children must not
    // keep our write end open.
    if (platform::closeOnExecPipe(ends) != 0) return std::nullopt;
    const int readEnd = ends[0];
    struct Closer {
        int fd;
        ~Closer() { ::close(fd); }
    } readCloser{readEnd};

    std::shared_ptr<SpawnedProcess> process;
    try {
        process = start(path, arguments, environment, ends[1], std::nullopt, true);
    } catch (const Failure&) {
        ::close(ends[1]);
        return std::nullopt;
    }
    ::close(ends[1]);  // so the read end sees end-of-file once the child and its descendants close theirs

    // Read while the child runs (a full pipe would stall it), on this thread: drain what is there,
    // then poll with a short period, so that the child's end is noticed even while a descendant
    // keeps the pipe open.
    ::fcntl(readEnd, F_SETFL, ::fcntl(readEnd, F_GETFL) | O_NONBLOCK);
    const auto started = std::chrono::steady_clock::now();
    std::optional<std::chrono::steady_clock::time_point> endedAt;
    std::string buffer;
    char chunk[65536];
    for (;;) {
        if (!endedAt && !process->isRunning()) endedAt = std::chrono::steady_clock::now();
        if (endedAt && secondsSince(*endedAt) >= 2.0) break;  // a descendant holds the pipe: keep what we have
        if (!endedAt && secondsSince(started) >= timeout) {
            process->terminate(1.0);
            return std::nullopt;
        }
        ssize_t n = ::read(readEnd, chunk, sizeof chunk);
        if (n > 0) {
            buffer.append(chunk, static_cast<std::size_t>(n));
            continue;
        }
        if (n == 0) break;
        if (errno == EINTR) continue;
        if (errno != EAGAIN && errno != EWOULDBLOCK) break;
        pollfd entry{readEnd, POLLIN, 0};
        if (::poll(&entry, 1, 50) < 0 && errno != EINTR) break;
    }
    if (!endedAt && !process->wait(timeout - secondsSince(started))) {
        process->terminate(1.0);
        return std::nullopt;
    }
    if (isAscii(buffer) || text::isValidUtf8(buffer)) return buffer;
    return text::repairedUtf8(buffer);
}

std::vector<pid_t> findProcesses(const std::string& executableSuffix) {
    const pid_t own = ::getpid();
    const uid_t user = ::getuid();
    std::vector<pid_t> found;
    for (pid_t pid : platform::allProcessIds()) {
        if (pid < 1 || pid == own) continue;
        // Only this user's: a Velmora run as root must leave other users' servers alone.
        if (platform::realUserOf(pid) != user) continue;
        // Processes whose path can't be read (other users', ended ones) are skipped.
        std::string executable = platform::executablePathOf(pid);
        if (executable.empty()) continue;
        executable = text::repairedUtf8(executable);
        if (executable.ends_with(executableSuffix)) found.push_back(pid);
    }
    return found;
}

std::vector<pid_t> findServers() { return findProcesses(platform::serverExecutableSuffix()); }

int stopLeftovers(const std::string& executableSuffix) {
    std::vector<pid_t> kept = findProcesses(executableSuffix);
    if (kept.empty()) return 0;
    // Ask them all first, so that they wind down side by side.
    for (pid_t pid : kept) ::kill(pid, SIGTERM);
    for (pid_t pid : kept) {
        bool alive = ::kill(pid, 0) == 0;
        for (int check = 0; alive && check < 200; ++check) {
            ::usleep(100000);
            alive = ::kill(pid, 0) == 0;
        }
        if (alive) ::kill(pid, SIGKILL);
    }
    return static_cast<int>(kept.size());
}

int stopLeftovers() { return stopLeftovers(platform::serverExecutableSuffix()); }

bool isExecutableFile(const std::string& path) {
    struct stat info{};
    return !path.empty() && ::stat(path.c_str(), &info) == 0 && S_ISREG(info.st_mode) &&
           ::access(path.c_str(), X_OK) == 0;
}

}  // namespace Spawn
}  // namespace velmora
