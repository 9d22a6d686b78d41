// velmora-server with the real FreeRDP shadow server under Xvfb, and the real RDP client
// (xfreerdp +auth-only) logging in over NLA.

#include "nla/nla_login.h"
#include "support/e2e_harness.h"
#include "support/loopback.h"
#include "support/run_command.h"
#include "support/temp_home.h"

#include <csignal>
#include <filesystem>
#include <gtest/gtest.h>
#include <sys/stat.h>

using namespace velmora;
using namespace velmora::test;

namespace {

class ServerHelperE2e : public ::testing::Test {
protected:
    void SetUp() override {
        std::string missing = missingE2ePrerequisite();
        if (!missing.empty()) GTEST_SKIP() << missing;
        xvfb_ = std::make_unique<Xvfb>();
        ASSERT_TRUE(xvfb_->running()) << "Xvfb did not start";
        ::mkdir(runtime_.c_str(), 0700);
        port_ = closedLoopbackPort();
        // A copy away from the installed layout: a velmora --headless started elsewhere on this
        // machine stops every ".../libexec/velmora/velmora-server" it finds.
        helper_ = home_.path() + "/velmora-server-under-test";
        std::filesystem::copy_file(builtExecutable("libexec/velmora/velmora-server"), helper_);
    }

    std::map<std::string, std::optional<std::string>> environment(const std::optional<std::string>& entry) {
        return {{"DISPLAY", xvfb_->display()}, {"MAC_SHADOW_NLA", entry}, {"MAC_SHADOW_PARENT_WATCH", "1"},
                {"XDG_RUNTIME_DIR", runtime_}, {"WLOG_LEVEL", "INFO"}, {"VELMORA_SHADOW_SERVER", std::nullopt}};
    }

    // What Velmora's launch plan gives with a login stored.
    std::vector<std::string> planArguments(bool login) const {
        std::vector<std::string> argv{helper_, "/port:" + std::to_string(port_), login ? "+auth" : "-auth",
                                      "/sec:tls"};
        if (login) argv.push_back("+sec-nla");
        for (const char* rest : {"-gfx-avc444", "+server-side-cursor", "/max-connections:5"}) argv.push_back(rest);
        return argv;
    }

    pid_t onlyChild(pid_t parent) {
        auto children = childrenOf(parent);
        return children.size() == 1 ? children[0] : -1;
    }

    TempHome home_;
    std::unique_ptr<Xvfb> xvfb_;
    std::string runtime_ = home_.path() + "/runtime";
    std::string log_ = home_.path() + "/server.log";
    int port_ = 0;
    std::string helper_;
    const std::string password_ = "correct horse \xc3\xa9";  // non-ASCII, to exercise UTF-16LE
    const std::string entry_ = *NLALogin::entry("anna", NLALogin::ntHashHex(password_));
};

}  // namespace

TEST_F(ServerHelperE2e, ProbeAnswersForTheDisplay) {
    auto granted = runCommand({helper_, "/port:33895"},
                              {{"DISPLAY", xvfb_->display()}, {"MAC_SHADOW_PERMS", "check"}, {"WLOG_LEVEL", "ERROR"}});
    EXPECT_EQ(granted.exitCode, 0);
    EXPECT_EQ(granted.out, "screen=1 input=1\n");

    auto noDisplay = runCommand({helper_, "/port:33895"}, {{"DISPLAY", std::nullopt}, {"MAC_SHADOW_PERMS", "request"}});
    EXPECT_EQ(noDisplay.exitCode, 0);
    EXPECT_EQ(noDisplay.out, "screen=0 input=0\n");

    auto goneDisplay = runCommand({helper_, "/port:33895"}, {{"DISPLAY", ":239"}, {"MAC_SHADOW_PERMS", "check"}});
    EXPECT_EQ(goneDisplay.out, "screen=0 input=0\n");
}

TEST_F(ServerHelperE2e, WindowsLoginOverNlaRightPasswordInWrongOneOut) {
    const std::string certFolder = home_.configHome() + "/freerdp/shadow";
    ASSERT_FALSE(fileExists(certFolder + "/shadow.crt"));

    BackgroundProcess helper(planArguments(true), environment(entry_), log_);
    ASSERT_TRUE(waitForListening(port_, 60, &helper)) << readFile(log_);
    pid_t server = onlyChild(helper.pid());
    ASSERT_GT(server, 0);
    EXPECT_EQ(std::filesystem::read_symlink("/proc/" + std::to_string(server) + "/exe"), "/usr/bin/freerdp-shadow-cli");

    // The login is in an in-memory SAM file only: not on the command line, not in the environment,
    // not on the file system.
    std::string commandLine = commandLineOf(server);
    EXPECT_EQ(commandLine.find(entry_.substr(entry_.find(':') + 1)), std::string::npos) << commandLine;
    EXPECT_NE(commandLine.find("+sec-nla /sam-file:/dev/fd/3"), std::string::npos) << commandLine;
    EXPECT_EQ(std::filesystem::read_symlink("/proc/" + std::to_string(server) + "/fd/3").string().rfind("/memfd:", 0), 0u);
    EXPECT_EQ(commandLine.find("max-connections"), std::string::npos) << commandLine;
    EXPECT_EQ(readFile("/proc/" + std::to_string(server) + "/environ").find("MAC_SHADOW_NLA"), std::string::npos);

    EXPECT_TRUE(fileExists(certFolder + "/shadow.crt")) << "the server makes its certificate where it keeps it";
    EXPECT_EQ(rdpClient(xvfb_->display(), port_, "anna", password_), 0) << readFile(log_);
    EXPECT_NE(rdpClient(xvfb_->display(), port_, "anna", "correct horse"), 0);
    EXPECT_NE(rdpClient(xvfb_->display(), port_, "bob", password_), 0);
    // Windows names are not case-sensitive, and the client's domain doesn't matter.
    EXPECT_EQ(rdpClient(xvfb_->display(), port_, "Anna", password_), 0);
    EXPECT_EQ(rdpClient(xvfb_->display(), port_, "WORKGROUP\\anna", password_), 0);
    // With "+auth" a TLS client is checked against the system's accounts (PAM), not the login.
    int tls = rdpClient(xvfb_->display(), port_, "anna", password_, "tls", false);
    EXPECT_NE(tls, 0);
    EXPECT_NE(tls, 124) << "the TLS session was let in";

    // SIGTERM reaches the server, which dies of it; the helper reports that and tidies up.
    helper.signal(SIGTERM);
    EXPECT_EQ(helper.waitForExit(30), 128 + SIGTERM);
    EXPECT_TRUE(waitForProcessGone(server, 10));
    EXPECT_TRUE(std::filesystem::is_empty(runtime_));
}

TEST_F(ServerHelperE2e, WithoutLoginNlaIsOffAndTlsStillAnswers) {
    BackgroundProcess helper(planArguments(false), environment(std::nullopt), log_);
    ASSERT_TRUE(waitForListening(port_, 60, &helper)) << readFile(log_);
    EXPECT_NE(rdpClient(xvfb_->display(), port_, "anna", password_, "nla"), 0);
    // TLS checks the account only after the security layer, beyond what +auth-only reaches.
    EXPECT_EQ(rdpClient(xvfb_->display(), port_, "anna", password_, "tls"), 0);
    EXPECT_TRUE(std::filesystem::is_empty(runtime_));
}

TEST_F(ServerHelperE2e, HelperAndServerEndWhenTheParentIsKilled) {
    std::vector<std::string> argv{"/bin/sh", "-c", "\"$@\" & wait", "sh"};
    auto plan = planArguments(true);
    argv.insert(argv.end(), plan.begin(), plan.end());
    BackgroundProcess parent(argv, environment(entry_), log_);
    ASSERT_TRUE(waitForListening(port_, 60, &parent)) << readFile(log_);
    pid_t helper = onlyChild(parent.pid());
    ASSERT_GT(helper, 0);
    pid_t server = onlyChild(helper);
    ASSERT_GT(server, 0);

    parent.signal(SIGKILL);
    EXPECT_EQ(parent.waitForExit(10), 128 + SIGKILL);
    EXPECT_TRUE(waitForProcessGone(helper, 20));
    EXPECT_TRUE(waitForProcessGone(server, 20));
    EXPECT_TRUE(std::filesystem::is_empty(runtime_));
    EXPECT_NE(readFile(log_).find("velmora-server: Velmora is gone; ending the server"), std::string::npos);
}
