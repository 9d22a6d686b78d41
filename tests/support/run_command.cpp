#include "support/run_command.h"

#include "core/environment.h"

#include <cerrno>
#include <fcntl.h>
#include <poll.h>
#include <stdexcept>
#include <sys/wait.h>
#include <unistd.h>

namespace velmora::test {

std::vector<std::string> environmentStrings(const std::map<std::string, std::optional<std::string>>& changes) {
    Environment env = processEnvironment();
    for (const auto& [name, value] : changes) {
        if (value) env[name] = *value;
        else env.erase(name);
    }
    std::vector<std::string> strings;
    for (const auto& [name, value] : env) strings.push_back(name + "=" + value);
    return strings;
}

std::vector<char*> execVector(std::vector<std::string>& strings) {
    std::vector<char*> pointers;
    for (auto& text : strings) pointers.push_back(text.data());
    pointers.push_back(nullptr);
    return pointers;
}

CommandResult runCommand(const std::vector<std::string>& argv,
                         const std::map<std::string, std::optional<std::string>>& environment,
                         const std::string& input) {
    std::vector<std::string> envStrings = environmentStrings(environment);
    std::vector<std::string> argStrings = argv;
    std::vector<char*> args = execVector(argStrings);
    std::vector<char*> envp = execVector(envStrings);

    int in[2], out[2], err[2];
    if (::pipe2(in, O_CLOEXEC) || ::pipe2(out, O_CLOEXEC) || ::pipe2(err, O_CLOEXEC))
        throw std::runtime_error("pipe failed");
    pid_t pid = ::fork();
    if (pid == 0) {
        ::dup2(in[0], 0);
        ::dup2(out[1], 1);
        ::dup2(err[1], 2);
        ::execve(args[0], args.data(), envp.data());
        ::_exit(127);
    }
    ::close(in[0]);
    ::close(out[1]);
    ::close(err[1]);
    if (!input.empty()) {
        ssize_t ignored = ::write(in[1], input.data(), input.size());
        (void)ignored;
    }
    ::close(in[1]);

    CommandResult result;
    pollfd fds[2] = {{out[0], POLLIN, 0}, {err[0], POLLIN, 0}};
    int open = 2;
    char buffer[65536];
    while (open > 0) {
        if (::poll(fds, 2, -1) < 0 && errno != EINTR) break;
        for (int i = 0; i < 2; ++i) {
            if (fds[i].fd < 0 || !(fds[i].revents & (POLLIN | POLLHUP | POLLERR))) continue;
            ssize_t n = ::read(fds[i].fd, buffer, sizeof buffer);
            if (n > 0) {
                (i == 0 ? result.out : result.err).append(buffer, static_cast<std::size_t>(n));
            } else if (n == 0 || errno != EINTR) {
                ::close(fds[i].fd);
                fds[i].fd = -1;
                --open;
            }
        }
    }
    int status = 0;
    while (::waitpid(pid, &status, 0) < 0 && errno == EINTR) {}
    result.exitCode = WIFSIGNALED(status) ? 128 + WTERMSIG(status) : WEXITSTATUS(status);
    return result;
}

std::string builtExecutable(const std::string& relative) {
#ifdef VELMORA_APP_EXECUTABLE
    // Wherever the build put it (bin/velmora here, inside Velmora.app on macOS).
    if (relative == "bin/velmora") return VELMORA_APP_EXECUTABLE;
#endif
    return std::string(VELMORA_BINARY_DIR) + "/" + relative;
}

}  // namespace velmora::test
