// velmora-server, which runs FreeRDP's shadow server in its own process, under Xvfb with the real
// RDP client: xfreerdp logging in over NLA (+auth-only), and whole sessions on a second display.

#include "nla/nla_login.h"
#include "support/e2e_harness.h"
#include "support/loopback.h"
#include "support/run_command.h"
#include "support/temp_home.h"
#include "usage/server_stats.h"

#include <csignal>
#include <filesystem>
#include <gtest/gtest.h>
#include <thread>

using namespace velmora;
using namespace velmora::test;

namespace {

using Environment = std::map<std::string, std::optional<std::string>>;

class ServerHelperE2e : public ::testing::Test {
protected:
    void SetUp() override {
        std::string missing = missingE2ePrerequisite();
        if (!missing.empty()) GTEST_SKIP() << missing;
        xvfb_ = std::make_unique<Xvfb>();
        ASSERT_TRUE(xvfb_->running()) << "Xvfb did not start";
        // A copy away from the installed layout: a velmora --headless started elsewhere on this
        // machine stops every ".../libexec/velmora/velmora-server" it finds.
        helper_ = home_.path() + "/velmora-server-under-test";
        std::filesystem::copy_file(builtExecutable("libexec/velmora/velmora-server"), helper_);
    }

    Environment environment(const std::optional<std::string>& entry, const std::string& stats) {
        return {{"DISPLAY", xvfb_->display()}, {"MAC_SHADOW_NLA", entry}, {"MAC_SHADOW_PARENT_WATCH", "1"},
                {"MAC_SHADOW_STATS_FILE", stats}, {"WLOG_LEVEL", "INFO"}};
    }

    // What Velmora's launch plan gives, with or without a login stored.
    std::vector<std::string> planArguments(int port, bool login, const std::string& limit = "5") const {
        std::vector<std::string> argv{helper_, "/port:" + std::to_string(port), login ? "+auth" : "-auth", "/sec:tls"};
        if (login) argv.push_back("+sec-nla");
        for (std::string rest : {std::string("-gfx-avc444"), std::string("+server-side-cursor"), "/max-connections:" + limit})
            argv.push_back(rest);
        return argv;
    }

    static std::optional<ServerStats> statsIn(const std::string& path) { return ServerStats::fromJSON(readFile(path)); }

    TempHome home_;
    std::unique_ptr<Xvfb> xvfb_;
    std::string helper_;
    const std::string password_ = "correct horse \xc3\xa9";  // non-ASCII, to exercise UTF-16LE
    const std::string entry_ = *NLALogin::entry("anna", NLALogin::ntHashHex(password_));
};

}  // namespace

TEST_F(ServerHelperE2e, ProbeAnswersForTheDisplayAndSaysWhatIsMissing) {
    struct Case {
        Environment environment;
        std::string answer;
    };
    for (const Case& c : {Case{{{"DISPLAY", xvfb_->display()}, {"MAC_SHADOW_PERMS", "check"}}, "screen=1 input=1\n"},
                          Case{{{"DISPLAY", std::nullopt}, {"MAC_SHADOW_PERMS", "request"}},
                               "cause=no-display\nscreen=0 input=0\n"},
                          Case{{{"DISPLAY", ":239"}, {"MAC_SHADOW_PERMS", "check"}},
                               "cause=display-refused :239\nscreen=0 input=0\n"},
                          Case{{{"DISPLAY", std::nullopt}, {"WAYLAND_DISPLAY", "wayland-0"}, {"MAC_SHADOW_PERMS", "check"}},
                               "cause=wayland\nscreen=0 input=0\n"}}) {
        auto probe = runCommand({helper_, "/port:33895"}, c.environment);
        EXPECT_EQ(probe.exitCode, 0);
        EXPECT_EQ(probe.out, c.answer);
    }
}

TEST_F(ServerHelperE2e, WindowsLoginOverNlaRightPasswordInWrongOneOut) {
    const std::string certFolder = home_.configHome() + "/freerdp/shadow";
    ASSERT_FALSE(fileExists(certFolder + "/shadow.crt"));
    const std::string log = home_.path() + "/server.log", stats = home_.path() + "/stats.json";
    const int port = closedLoopbackPort();

    BackgroundProcess helper(planArguments(port, true), environment(entry_, stats), log);
    ASSERT_TRUE(waitForListening(port, 60, &helper)) << readFile(log);
    // The shadow server runs in the helper itself: no freerdp-shadow-cli, no child at all.
    EXPECT_TRUE(childrenOf(helper.pid()).empty());
    // The login is in the helper's memory only: not on its command line, and gone from the
    // environment the kernel keeps for it.
    const std::string hash = entry_.substr(entry_.find(':') + 1);
    std::string environ = readFile("/proc/" + std::to_string(helper.pid()) + "/environ");
    EXPECT_NE(environ.find("MAC_SHADOW_PARENT_WATCH=1"), std::string::npos);
    EXPECT_EQ(environ.find(hash), std::string::npos);
    EXPECT_EQ(environ.find("MAC_SHADOW_NLA"), std::string::npos);
    EXPECT_EQ(commandLineOf(helper.pid()).find(hash), std::string::npos);
    EXPECT_TRUE(fileExists(certFolder + "/shadow.crt")) << "the server makes its certificate where it keeps it";

    EXPECT_EQ(rdpClient(xvfb_->display(), port, "anna", password_), 0) << readFile(log);
    EXPECT_NE(rdpClient(xvfb_->display(), port, "anna", "correct horse"), 0);
    EXPECT_NE(rdpClient(xvfb_->display(), port, "bob", password_), 0);
    // Windows names are not case-sensitive, and the client's domain doesn't matter.
    EXPECT_EQ(rdpClient(xvfb_->display(), port, "ANNA", password_), 0);
    EXPECT_EQ(rdpClient(xvfb_->display(), port, "WORKGROUP\\anna", password_), 0);
    // With "+auth" a TLS client is checked against the system's accounts (PAM), not the login.
    int tls = rdpClient(xvfb_->display(), port, "anna", password_, "tls", false);
    EXPECT_NE(tls, 0);
    EXPECT_NE(tls, 124) << "the TLS session was let in";

    // SIGTERM ends the helper as it would have ended a server without a handler for it.
    helper.signal(SIGTERM);
    EXPECT_EQ(helper.waitForExit(30), 128 + SIGTERM);
    std::string text = readFile(log);
    EXPECT_NE(text.find("velmora-server: login refused for anna from 127.0.0.1\n"), std::string::npos) << text;
    EXPECT_NE(text.find("velmora-server: login refused for bob from 127.0.0.1\n"), std::string::npos) << text;
    auto counted = statsIn(stats);
    ASSERT_TRUE(counted) << readFile(stats);
    EXPECT_EQ(counted->riskEvents, 3) << "the wrong password, the unknown name and the TLS account";
}

TEST_F(ServerHelperE2e, WithoutLoginNlaIsOffAndTlsStillAnswers) {
    const std::string log = home_.path() + "/server.log";
    const int port = closedLoopbackPort();
    BackgroundProcess helper(planArguments(port, false), environment(std::nullopt, home_.path() + "/s.json"), log);
    ASSERT_TRUE(waitForListening(port, 60, &helper)) << readFile(log);
    EXPECT_NE(rdpClient(xvfb_->display(), port, "anna", password_, "nla"), 0);
    EXPECT_EQ(rdpClient(xvfb_->display(), port, "anna", password_, "tls"), 0);
}

TEST_F(ServerHelperE2e, HelperEndsWhenTheParentIsKilled) {
    const std::string log = home_.path() + "/server.log";
    const int port = closedLoopbackPort();
    std::vector<std::string> argv{"/bin/sh", "-c", "\"$@\" & wait", "sh"};
    auto plan = planArguments(port, true);
    argv.insert(argv.end(), plan.begin(), plan.end());
    BackgroundProcess parent(argv, environment(entry_, home_.path() + "/s.json"), log);
    ASSERT_TRUE(waitForListening(port, 60, &parent)) << readFile(log);
    auto helpers = childrenOf(parent.pid());
    ASSERT_EQ(helpers.size(), 1u);

    parent.signal(SIGKILL);
    EXPECT_EQ(parent.waitForExit(10), 128 + SIGKILL);
    EXPECT_TRUE(waitForProcessGone(helpers[0], 20));
    EXPECT_NE(readFile(log).find("velmora-server: Velmora is gone; ending the server"), std::string::npos);
}

// Two servers share a desktop that repaints 60 times a second, one at 5 frames a second and
// limited to one client, one at 30; each gets a whole session from a client on a second display.
TEST_F(ServerHelperE2e, ConnectionLimitFrameRateAndStatistics) {
    Xvfb clients;
    ASSERT_TRUE(clients.running());
    BackgroundProcess repaint({builtExecutable("bin/velmora-repaint"), "60"}, {{"DISPLAY", xvfb_->display()}});
    struct Server {
        explicit Server(std::string rate) : fps(std::move(rate)) {}
        std::string fps;
        int port = closedLoopbackPort();
        std::string log, stats;
        std::unique_ptr<BackgroundProcess> helper, client;
    };
    Server slow("5"), fast("30");
    for (Server* server : {&slow, &fast}) {
        server->log = home_.path() + "/server-" + server->fps + ".log";
        server->stats = home_.path() + "/stats-" + server->fps + ".json";
        Environment env = environment(std::nullopt, server->stats);
        env["MAC_SHADOW_FPS"] = server->fps;
        env["MAC_SHADOW_ADAPTIVE_FPS"] = "0";  // the configured rate, however busy this machine is
        server->helper = std::make_unique<BackgroundProcess>(planArguments(server->port, false, "1"), env, server->log);
        ASSERT_TRUE(waitForListening(server->port, 60, server->helper.get())) << readFile(server->log);
        // RemoteFX rather than H.264 (the client's choice), to keep this test light.
        server->client = std::make_unique<BackgroundProcess>(rdpSessionArguments(server->port, "anna", password_, {"-gfx"}),
                                                             Environment{{"DISPLAY", clients.display()}});
    }
    for (Server* server : {&slow, &fast})
        ASSERT_TRUE(eventually([&] { return readFile(server->log).find("client connected from 127.0.0.1 as anna\n") !=
                                            std::string::npos; }, 60))
            << readFile(server->log);

    // A second client is refused while the first stays.
    int refused = rdpClient(clients.display(), slow.port, "bob", password_, "tls", false);
    EXPECT_NE(refused, 0);
    EXPECT_NE(refused, 124) << "the second client was let in";
    EXPECT_NE(readFile(slow.log).find(
                  "velmora-server: refused a client from 127.0.0.1: 1 of 1 allowed clients are connected\n"),
              std::string::npos) << readFile(slow.log);
    EXPECT_FALSE(slow.client->waitForExit(0));

    std::this_thread::sleep_for(std::chrono::seconds(3));  // the window in which frames are counted
    for (Server* server : {&slow, &fast}) {
        server->helper->signal(SIGTERM);
        EXPECT_EQ(server->helper->waitForExit(30), 128 + SIGTERM);
        EXPECT_NE(readFile(server->log).find("velmora-server: client 127.0.0.1 as anna disconnected after 0:00:0"),
                  std::string::npos) << readFile(server->log);
        server->client->waitForExit(30);
    }
    auto slowStats = statsIn(slow.stats), fastStats = statsIn(fast.stats);
    ASSERT_TRUE(slowStats && fastStats);
    EXPECT_EQ(*slowStats, (ServerStats{1, slowStats->repaints, 0, 1, 0, ""}));
    EXPECT_EQ(fastStats->sessions, 1);
    EXPECT_GT(slowStats->repaints, 0);
    EXPECT_GT(fastStats->repaints, 3 * slowStats->repaints)
        << "5 fps: " << slowStats->repaints << " frames, 30 fps: " << fastStats->repaints;
}
