#include "platform/command_output.h"

#include "platform/descriptors.h"
#include "platform/spawn_attributes.h"

#include <cerrno>
#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

extern char** environ;

namespace velmora::platform {

std::optional<std::string> commandOutput(const std::string& program, const std::vector<std::string>& arguments) {
    int ends[2];
    // Close-on-exec from the start: neither end may leak into children other threads start meanwhile.
    if (closeOnExecPipe(ends) != 0) return std::nullopt;

    posix_spawn_file_actions_t actions;
    posix_spawnattr_t attributes;
    posix_spawn_file_actions_init(&actions);
    posix_spawnattr_init(&attributes);
    posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_adddup2(&actions, ends[1], STDOUT_FILENO);
    posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
    addCloseInheritedDescriptors(&actions);
    sigset_t all;
    sigset_t none;
    sigfillset(&all);
    sigemptyset(&none);
    posix_spawnattr_setsigdefault(&attributes, &all);
    posix_spawnattr_setsigmask(&attributes, &none);
    setCleanSpawnFlags(&attributes);

    std::vector<std::string> copies = arguments;
    std::vector<char*> argv;
    std::string path = program;
    argv.push_back(path.data());
    for (auto& argument : copies) argv.push_back(argument.data());
    argv.push_back(nullptr);

    pid_t pid = 0;
    int status = posix_spawn(&pid, path.c_str(), &actions, &attributes, argv.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    posix_spawnattr_destroy(&attributes);
    ::close(ends[1]);
    if (status != 0) {
        ::close(ends[0]);
        return std::nullopt;
    }

    std::string output;
    char buffer[65536];
    for (;;) {
        ssize_t n = ::read(ends[0], buffer, sizeof buffer);
        if (n > 0) output.append(buffer, static_cast<std::size_t>(n));
        else if (n == 0 || errno != EINTR) break;
    }
    ::close(ends[0]);
    while (::waitpid(pid, &status, 0) < 0 && errno == EINTR) {
    }
    return output;
}

}  // namespace velmora::platform
