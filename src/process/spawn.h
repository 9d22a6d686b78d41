#pragma once
// Every child process of the application starts here: the server, its permission probe, system
// tools. Children get standard input from /dev/null, no inherited descriptor besides 0, 1 and 2,
// every signal at its default, and exactly the environment they are given.

#include "core/environment.h"
#include "core/main_queue.h"
#include "process/spawned_process.h"

#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

namespace velmora::Spawn {

// The one error of this module: posix_spawn refused. description() reads
// "Could not start the server: " followed by reason(), the system's text for the error number.
class Failure : public std::runtime_error {
public:
    explicit Failure(int code);
    int code() const { return code_; }
    std::string description() const { return what(); }
    std::string reason() const;

private:
    int code_;
};

// Starts `path` (no PATH search) with `arguments` (without the program name) and exactly
// `environment`. Standard output and error go to the given descriptors, else to /dev/null.
// `disclaim` asks for the child to be responsible for itself; whether it worked is
// SpawnedProcess::disclaimed(). onExit is delivered through `onExitQueue` (a MainQueue's link);
// with none it never runs. Throws Failure.
std::shared_ptr<SpawnedProcess> start(const std::string& path, const std::vector<std::string>& arguments,
                                      const Environment& environment, std::optional<int> stdoutFd,
                                      std::optional<int> stderrFd, bool disclaim,
                                      std::shared_ptr<MainQueueLink> onExitQueue = nullptr);

// Runs a program to its end and returns its standard output as UTF-8 (invalid bytes replaced);
// standard error is discarded. Absent when it could not start or outlived `timeout` seconds (it is
// then ended). Blocks the caller.
std::optional<std::string> output(const std::string& path, const std::vector<std::string>& arguments,
                                  const Environment& environment, double timeout);

// The processes of this user (same real user id) other than this one whose executable path ends
// with `executableSuffix`, in list order; nothing is signalled.
std::vector<pid_t> findProcesses(const std::string& executableSuffix);
// This user's Velmora servers.
std::vector<pid_t> findServers();

// Ends every process that findProcesses(executableSuffix) finds:
// SIGTERM to all, then SIGKILL to those still there after 20 seconds each. Returns how many were
// found. Blocks the caller.
int stopLeftovers(const std::string& executableSuffix);
int stopLeftovers();  // with the installed server's suffix

// True when `path` names a regular file this process may execute.
bool isExecutableFile(const std::string& path);

}  // namespace velmora::Spawn
