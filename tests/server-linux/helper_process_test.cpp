// velmora-server as a real process, with a small shell script standing in for freerdp-shadow-cli
// (VELMORA_SHADOW_SERVER), so that what reaches the server can be looked at.

#include "support/e2e_harness.h"
#include "support/run_command.h"
#include "support/temp_home.h"

#include <csignal>
#include <fcntl.h>
#include <filesystem>
#include <sys/stat.h>
#include <gtest/gtest.h>
#include <unistd.h>

using namespace velmora::test;

namespace {

const std::string hash = "b39a61f16a4e11fa80580241f1d4aae8";

const char* const fakeServer = R"SH(out="$FAKE_OUT"
{
  printf 'args:'; for a in "$@"; do printf ' [%s]' "$a"; done; echo
  env | grep '^MAC_SHADOW' | sort
  for f in /proc/$$/fd/*; do echo "fd: $(readlink "$f")"; done
  for a in "$@"; do
    case "$a" in /sam-file:*)
      f=${a#/sam-file:}
      cat "$f" > /dev/null
      sed 's/^/sam: /' "$f";;
    esac
  done
} > "$out.tmp"
mv "$out.tmp" "$out"
if [ "$FAKE_MODE" = sleep ]; then exec sleep 300; fi
exit 3
)SH";

class HelperProcess : public ::testing::Test {
protected:
    void SetUp() override {
        script_ = writeScript(home_.path() + "/fake-shadow", fakeServer);
        record_ = home_.path() + "/record";
        ::mkdir(runtime_.c_str(), 0700);
        // A copy away from the installed layout: a velmora --headless started elsewhere on this
        // machine stops every ".../libexec/velmora/velmora-server" it finds.
        helper_ = home_.path() + "/velmora-server-under-test";
        std::filesystem::copy_file(builtExecutable("libexec/velmora/velmora-server"), helper_);
    }

    std::map<std::string, std::optional<std::string>> environment(const std::string& mode,
                                                                  const std::string& watch = "1") {
        return {{"VELMORA_SHADOW_SERVER", script_}, {"FAKE_OUT", record_}, {"FAKE_MODE", mode},
                {"MAC_SHADOW_NLA", "anna:" + hash}, {"MAC_SHADOW_PARENT_WATCH", watch},
                {"MAC_SHADOW_FPS", "30"}, {"XDG_RUNTIME_DIR", runtime_}};
    }

    // Waits for the fake server to have written its record.
    std::string record() {
        eventually([&] { return fileExists(record_); }, 10);
        return readFile(record_);
    }

    bool runtimeEmpty() const { return std::filesystem::is_empty(runtime_); }

    TempHome home_;
    std::string script_, record_, runtime_ = home_.path() + "/runtime";
    std::string helper_;
    const std::vector<std::string> plan_ = {"/port:3390", "+auth", "/sec:tls", "+sec-nla", "-gfx-avc444",
                                            "+server-side-cursor", "/max-connections:5"};
};

}  // namespace

TEST_F(HelperProcess, ServerGetsTranslatedArgumentsPrivateLoginAndNothingElse) {
    // A descriptor the helper inherits without close-on-exec must not reach the server.
    std::string marker = home_.path() + "/inherited-marker";
    int leaked = ::open(marker.c_str(), O_WRONLY | O_CREAT, 0600);
    ASSERT_GE(leaked, 3);
    std::vector<std::string> argv{helper_};
    argv.insert(argv.end(), plan_.begin(), plan_.end());
    auto result = runCommand(argv, environment("exit"));
    ::close(leaked);

    EXPECT_EQ(result.exitCode, 3);  // the server's own code
    std::string seen = readFile(record_);
    EXPECT_NE(seen.find("args: [/port:3390] [+auth] [/sec:tls] [+sec-nla] [/sam-file:/dev/fd/3]\n"),
              std::string::npos) << seen;
    EXPECT_EQ(seen.find("MAC_SHADOW"), std::string::npos) << seen;
    EXPECT_EQ(seen.find(marker), std::string::npos) << seen;
    // The login is an in-memory file the server reads (twice, as for two logins) by its path.
    EXPECT_NE(seen.find("fd: /memfd:velmora-login (deleted)\n"), std::string::npos) << seen;
    EXPECT_NE(seen.find("sam: anna:::" + hash + ":::\nsam: ANNA:::" + hash + ":::\nsam: Anna:::" + hash + ":::\n"),
              std::string::npos) << seen;
    EXPECT_TRUE(runtimeEmpty());
    EXPECT_NE(result.err.find("velmora-server: left out, not known to freerdp-shadow-cli: -gfx-avc444 "
                              "+server-side-cursor /max-connections:5"),
              std::string::npos) << result.err;
}

TEST_F(HelperProcess, NoUsableLoginMeansNoNla) {
    auto env = environment("exit");
    env["MAC_SHADOW_NLA"] = "anna:" + hash.substr(2);
    auto malformed = runCommand({helper_, "/port:3390", "+auth", "/sec:tls", "+sec-nla"}, env);
    EXPECT_EQ(malformed.exitCode, 3);
    EXPECT_NE(readFile(record_).find("args: [/port:3390] [+auth] [/sec:tls]\n"), std::string::npos);
    EXPECT_NE(malformed.err.find("the Windows login is malformed; NLA stays off"), std::string::npos);

    ::unlink(record_.c_str());
    env["MAC_SHADOW_NLA"] = std::nullopt;
    auto missing = runCommand({helper_, "/port:3390", "+auth", "/sec:tls", "+sec-nla"}, env);
    EXPECT_NE(readFile(record_).find("args: [/port:3390] [+auth] [/sec:tls]\n"), std::string::npos);
    EXPECT_NE(missing.err.find("NLA asked for without a Windows login"), std::string::npos);

    // Without "+sec-nla" an entry in the environment writes no SAM file.
    ::unlink(record_.c_str());
    env["MAC_SHADOW_NLA"] = "anna:" + hash;
    runCommand({helper_, "/port:3390", "-auth", "/sec:tls"}, env);
    EXPECT_NE(readFile(record_).find("args: [/port:3390] [-auth] [/sec:tls]\n"), std::string::npos);
    EXPECT_TRUE(runtimeEmpty());
}

TEST_F(HelperProcess, SignalsReachTheServerAndItsEndIsTheHelpersEnd) {
    for (int signal : {SIGTERM, SIGINT}) {
        ::unlink(record_.c_str());
        // Started with SIGINT ignored, as from a background shell job: the server must still get it.
        std::vector<std::string> argv{"/bin/sh", "-c", "trap '' INT; exec \"$0\" \"$@\"", helper_};
        argv.insert(argv.end(), plan_.begin(), plan_.end());
        BackgroundProcess helper(argv, environment("sleep"));
        ASSERT_NE(record(), "");
        auto servers = childrenOf(helper.pid());
        ASSERT_EQ(servers.size(), 1u);
        helper.signal(signal);
        EXPECT_EQ(helper.waitForExit(20), 128 + signal);
        EXPECT_TRUE(waitForProcessGone(servers[0], 10));
        EXPECT_TRUE(runtimeEmpty());
    }
}

// Reads the count of times a process gave up the processor of its own accord.
long voluntarySwitches(pid_t pid) {
    std::string status = readFile("/proc/" + std::to_string(pid) + "/status");
    auto at = status.find("voluntary_ctxt_switches:");
    return at == std::string::npos ? -1 : std::stol(status.substr(at + 24));
}

TEST_F(HelperProcess, AnIdleHelperSleeps) {
    std::vector<std::string> argv{helper_};
    argv.insert(argv.end(), plan_.begin(), plan_.end());
    BackgroundProcess helper(argv, environment("sleep"));
    ASSERT_NE(record(), "");
    long before = voluntarySwitches(helper.pid());
    ::usleep(1500000);  // watching for activity, not waiting for a timer: a polling helper wakes here
    EXPECT_EQ(voluntarySwitches(helper.pid()), before);
    helper.signal(SIGTERM);
    EXPECT_EQ(helper.waitForExit(20), 128 + SIGTERM);
}

// A helper whose parent is killed ends with the server (see the e2e test); one told not to watch
// stays, and a SIGKILL to it still takes the server along and leaves no trace of the login.
TEST_F(HelperProcess, WithoutParentWatchAKilledHelperStillTakesTheServerAlong) {
    std::vector<std::string> argv{"/bin/sh", "-c", "\"$@\" & wait", "sh", helper_};
    argv.insert(argv.end(), plan_.begin(), plan_.end());
    BackgroundProcess parent(argv, environment("sleep", "0"));
    ASSERT_NE(record(), "");
    auto helpers = childrenOf(parent.pid());
    ASSERT_EQ(helpers.size(), 1u);
    auto servers = childrenOf(helpers[0]);
    ASSERT_EQ(servers.size(), 1u);

    parent.signal(SIGKILL);
    parent.waitForExit(10);
    EXPECT_TRUE(processAlive(helpers[0]));
    ::kill(helpers[0], SIGKILL);
    EXPECT_TRUE(waitForProcessGone(helpers[0], 10));
    EXPECT_TRUE(waitForProcessGone(servers[0], 10));
    EXPECT_TRUE(runtimeEmpty());
}
