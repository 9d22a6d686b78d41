#include "support/run_command.h"

#include "core/environment.h"

#include <cerrno>
#include <fcntl.h>
#include <cstdio>
#include <memory>
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
    std::vector<std::string> envStrings = environmentStrings(environment), argStrings = argv;
    std::vector<char*> args = execVector(argStrings), envp = execVector(envStrings);
    // Standard error goes to a file, so that reading standard output to its end cannot stall the child.
    std::unique_ptr<FILE, decltype(&std::fclose)> err(std::tmpfile(), &std::fclose);
    int in[2], out[2];
    if (!err || ::pipe2(in, O_CLOEXEC) || ::pipe2(out, O_CLOEXEC)) throw std::runtime_error("pipe failed");
    pid_t pid = ::fork();
    if (pid == 0) {
        ::dup2(in[0], 0);
        ::dup2(out[1], 1);
        ::dup2(::fileno(err.get()), 2);
        ::execve(args[0], args.data(), envp.data());
        ::_exit(127);
    }
    ::close(in[0]);
    ::close(out[1]);
    if (!input.empty() && ::write(in[1], input.data(), input.size()) < 0) {}
    ::close(in[1]);

    CommandResult result;
    char buffer[65536];
    for (ssize_t n; (n = ::read(out[0], buffer, sizeof buffer)) != 0;) {
        if (n > 0) result.out.append(buffer, static_cast<std::size_t>(n));
        else if (errno != EINTR) break;
    }
    ::close(out[0]);
    int status = 0;
    while (::waitpid(pid, &status, 0) < 0 && errno == EINTR) {}
    result.exitCode = WIFSIGNALED(status) ? 128 + WTERMSIG(status) : WEXITSTATUS(status);
    std::rewind(err.get());
    for (std::size_t n; (n = std::fread(buffer, 1, sizeof buffer, err.get())) > 0;) result.err.append(buffer, n);
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
