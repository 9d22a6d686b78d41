#pragma once
// End-to-end pieces for tests: a private Xvfb display, free loopback ports, long-running child
// processes that are always ended, and the real RDP client in authentication-only mode.

#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <sys/types.h>
#include <vector>

namespace velmora::test {

// Why an end-to-end test can't run here (a missing binary), or empty.
std::string missingE2ePrerequisite();

// A child process started in the background, with environment changes as for runCommand, its
// output appended to `outputFile` and, when given, `descriptor3` as its descriptor 3. The
// destructor kills it (SIGKILL) and reaps it if it is still there.
class BackgroundProcess {
public:
    BackgroundProcess(const std::vector<std::string>& argv,
                      const std::map<std::string, std::optional<std::string>>& environment = {},
                      const std::string& outputFile = "/dev/null", int descriptor3 = -1);
    ~BackgroundProcess();
    BackgroundProcess(const BackgroundProcess&) = delete;
    BackgroundProcess& operator=(const BackgroundProcess&) = delete;

    pid_t pid() const { return pid_; }
    // Waits up to `seconds` for the end; its exit code (128 + signal), or absent if still running.
    std::optional<int> waitForExit(double seconds);
    void signal(int signal) const;

private:
    pid_t pid_ = -1;
    std::optional<int> exitCode_;
};

// Xvfb on a display number it picks itself (-displayfd), ready for clients once constructed;
// ended by the destructor.
class Xvfb {
public:
    Xvfb();
    ~Xvfb();
    Xvfb(const Xvfb&) = delete;
    Xvfb& operator=(const Xvfb&) = delete;
    bool running() const { return process_ != nullptr; }
    const std::string& display() const { return display_; }  // ":N"

private:
    std::string display_;
    std::unique_ptr<BackgroundProcess> process_;
};

// Polls `condition` until it holds (true) or `seconds` have passed (false).
bool eventually(const std::function<bool()>& condition, double seconds);
// Polls connect() to 127.0.0.1:port until it is accepted or `seconds` have passed; gives up early
// when `owner` (if given) has ended.
bool waitForListening(int port, double seconds, BackgroundProcess* owner = nullptr);
// Polls until `pid` is gone (or a zombie) or `seconds` have passed.
bool waitForProcessGone(pid_t pid, double seconds);
bool processAlive(pid_t pid);
// The parent of `pid`, or -1 when it is gone.
pid_t parentOf(pid_t pid);
// The processes whose parent is `pid` (from /proc).
std::vector<pid_t> childrenOf(pid_t pid);
// The NUL-separated command line of `pid`, as one string with spaces.
std::string commandLineOf(pid_t pid);

// xfreerdp against 127.0.0.1:port with /sec:<security>, +auth-only unless `authOnly` is false (a
// whole session, ended after 60 s if it is let in: exit code 124); its exit code (0: logged in).
int rdpClient(const std::string& display, int port, const std::string& user, const std::string& password,
              const std::string& security = "nla", bool authOnly = true);

// The xfreerdp command line of a whole TLS session against 127.0.0.1:port (certificate ignored),
// for a client kept in the background with DISPLAY set; `extra` options are appended.
std::vector<std::string> rdpSessionArguments(int port, const std::string& user, const std::string& password,
                                             const std::vector<std::string>& extra = {});

}  // namespace velmora::test
