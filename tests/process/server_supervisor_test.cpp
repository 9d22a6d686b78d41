#include "process/server_supervisor.h"

#include "core/manual_queue.h"
#include "permissions/helper_perms.h"
#include "platform/app_log.h"
#include "platform/paths.h"
#include "platform/words.h"
#include "settings/settings_store.h"
#include "settings/keys.h"
#include "support/loopback.h"
#include "support/temp_home.h"
#include "support/log_lines.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <filesystem>

using namespace velmora;
using namespace velmora::test;

namespace {

// The application's side, with the real permission service asking the script below.
struct Owner final : SupervisorOwner {
    std::shared_ptr<HelperPerms> perms;
    std::optional<std::string> executable;
    platform::DefaultsStore store;
    std::function<void()> ready;  // what the permissions window would continue with
    int refreshes = 0;

    std::optional<std::string> serverExecutable() const override { return executable; }
    void checkServerPermissions(std::function<void(StartPermission)> answer) override {
        perms->check([answer](std::optional<PermStatus> status) {
            answer(!status ? StartPermission::noAnswer : status->allOK() ? StartPermission::granted : StartPermission::missing);
        });
    }
    ServerSettings settingsForLaunch() override { return currentSettings(store, [] { return std::nullopt; }); }
    void permissionsMissing(std::function<void()> startAgain) override { ready = std::move(startAgain); }
    void serverStateChanged() override { ++refreshes; }
};

// A server helper played by a script: it answers the probe with the contents of the file
// "answer", and otherwise behaves as the file "mode" says.
class SupervisorTest : public ::testing::Test {
protected:
    void SetUp() override {
        ::unsetenv("KORVEN_CLI");
        platform::makeDirectories(platform::logDirectory());
        dir = home.path();
        setAnswer("screen=1 input=1");
        setMode("run");
        writeScript(dir + "/prefix/libexec/velmora/velmora-server",
                    "if [ -n \"$MAC_SHADOW_PERMS\" ]; then echo probe >> '" + dir + "/calls'; cat '" + dir +
                        "/answer'; exit 0; fi\n"
                        "echo \"server running with $*\"\n"
                        "case $(cat '" + dir + "/mode') in\n"
                        "  exit0) exit 0 ;;\n"
                        "  exit1) exit 1 ;;\n"
                        "  *) exec sleep 1000 ;;\n"
                        "esac\n");
        registerDefaultsAndMigrate(owner.store);
        owner.perms = HelperPerms::create(queue, owner.store, {.bundleRoot = dir + "/prefix"});
        owner.executable = owner.perms->helperBinary();
        supervisor = ServerSupervisor::create(queue, owner, 0.5);
    }

    void TearDown() override {
        supervisor->stopServer();
        owner.perms->drainQueue();
    }

    void setAnswer(const std::string& answer) { writeFile(dir + "/answer", answer + "\n"); }
    void setMode(const std::string& mode) { writeFile(dir + "/mode", mode + "\n"); }
    std::size_t probes() const {
        std::string calls = readFile(dir + "/calls");
        return static_cast<std::size_t>(std::count(calls.begin(), calls.end(), '\n'));
    }

    // Starts and waits (in real time) until the permission check has finished.
    void startAndSettle() {
        supervisor->startServer();
        ASSERT_TRUE(queue.runUntil([&] { return !supervisor->starting(); }, 30));
    }

    // Kills the running server as a crash would, and waits until its end has been handled.
    void crash() {
        ASSERT_TRUE(supervisor->running());
        ::kill(supervisor->task()->pid(), SIGKILL);
        ASSERT_TRUE(queue.runUntil([&] { return !supervisor->task(); }, 30));
    }

    TempHome home;
    std::string dir;
    ManualQueue queue;
    Owner owner;
    std::shared_ptr<ServerSupervisor> supervisor;
};

}  // namespace

TEST_F(SupervisorTest, StartChecksPermissionsThenLaunchesWithOutputInTheLog) {
    supervisor->startServer();
    supervisor->startServer();  // ignored: a check is under way
    EXPECT_TRUE(supervisor->starting());
    EXPECT_EQ(supervisor->idleStatusLine(), "Checking permissions…");
    EXPECT_EQ(owner.refreshes, 1);
    ASSERT_TRUE(queue.runUntil([&] { return supervisor->running(); }, 30));
    supervisor->startServer();  // ignored: running
    queue.runPending();
    EXPECT_EQ(probes(), 1u);
    EXPECT_FALSE(supervisor->lastError());

    // The server's own line arrives whenever the script gets to it.
    for (int i = 0; i < 10000 && readFile(platform::AppLog::path()).find("server running with") == std::string::npos; ++i)
        ::usleep(1000);
    auto messages = logMessages();
    ASSERT_GE(messages.size(), 3u);
    EXPECT_EQ(messages[0], "permission check: screen=1 input=1");
    EXPECT_EQ(messages[1].rfind("starting Velmora Server: /port:3389 ", 0), 0u) << messages[1];
    EXPECT_EQ(messages[2].rfind("server running with /port:3389 ", 0), 0u) << messages[2];  // the server's own line
    // Nothing about disclaiming on a system that has no such thing.
    for (const auto& message : messages) EXPECT_EQ(message.find("warning"), std::string::npos);

    pid_t pid = supervisor->task()->pid();
    int before = owner.refreshes;
    supervisor->toggleServer();
    EXPECT_FALSE(supervisor->running());
    EXPECT_NE(::kill(pid, 0), 0);
    EXPECT_GT(owner.refreshes, before);
    queue.runPending();  // the watcher's end arrives, but a deliberate stop is no unexpected end
    messages = logMessages();
    EXPECT_EQ(messages.back(), "Velmora Server stopped");
    EXPECT_EQ(std::count_if(messages.begin(), messages.end(),
                            [](const std::string& m) { return m.rfind("Velmora Server ended", 0) == 0; }),
              0);
    EXPECT_EQ(queue.pendingTimers(), 0u);
    EXPECT_EQ(supervisor->idleStatusLine(), "Stopped");
}

TEST_F(SupervisorTest, CrashesRestartAfterGrowingDelaysAndALongRunResetsTheCount) {
    startAndSettle();
    std::vector<double> delays;
    for (int round = 0; round < 7; ++round) {
        ASSERT_TRUE(supervisor->running());
        queue.advance(10);  // each run lasts 10 s on the main queue's clock
        crash();
        EXPECT_EQ(supervisor->lastError(), "Stopped unexpectedly (code 137)");
        EXPECT_EQ(supervisor->idleStatusLine(), "Stopped unexpectedly (code 137)");
        ASSERT_TRUE(supervisor->restartPending());
        delays.push_back(queue.secondsToNextTimer());
        queue.advanceToNextTimer();
        ASSERT_TRUE(queue.runUntil([&] { return supervisor->running(); }, 30));
        EXPECT_FALSE(supervisor->lastError());  // cleared at launch
    }
    EXPECT_EQ(delays, (std::vector<double>{2, 4, 8, 16, 32, 60, 60}));
    EXPECT_EQ(supervisor->unexpectedEnds(), 7);

    queue.advance(301);
    crash();
    EXPECT_EQ(supervisor->unexpectedEnds(), 1);
    EXPECT_EQ(queue.secondsToNextTimer(), 2);

    auto messages = logMessages();
    std::vector<std::string> restarts;
    for (const auto& m : messages)
        if (m.rfind("starting Velmora Server again", 0) == 0 || m.rfind("Velmora Server ended", 0) == 0)
            restarts.push_back(m);
    ASSERT_EQ(restarts.size(), 16u);
    EXPECT_EQ(restarts[0], "Velmora Server ended (code 137)");
    EXPECT_EQ(restarts[1], "starting Velmora Server again in 2 s (1 unexpected end in a row)");
    EXPECT_EQ(restarts[3], "starting Velmora Server again in 4 s (2 unexpected ends in a row)");
    EXPECT_EQ(restarts[13], "starting Velmora Server again in 60 s (7 unexpected ends in a row)");
    EXPECT_EQ(restarts[15], "starting Velmora Server again in 2 s (1 unexpected end in a row)");
    EXPECT_EQ(probes(), 8u);  // every restart checks the permissions again
}

TEST_F(SupervisorTest, StopCancelsAPendingRestartAndACleanEndIsNotRestarted) {
    setMode("exit1");
    startAndSettle();
    ASSERT_TRUE(queue.runUntil([&] { return supervisor->restartPending(); }, 30));
    EXPECT_EQ(supervisor->lastError(), "Stopped unexpectedly (code 1)");
    supervisor->stopServer();
    EXPECT_FALSE(supervisor->restartPending());
    queue.advance(120);
    EXPECT_FALSE(supervisor->running());
    EXPECT_FALSE(supervisor->starting());
    EXPECT_EQ(probes(), 1u);
    auto messages = logMessages();
    EXPECT_EQ(messages.back(), "starting Velmora Server again in 2 s (1 unexpected end in a row)");
    // The streak survives a stop.
    EXPECT_EQ(supervisor->unexpectedEnds(), 1);

    // A server that ends cleanly is not restarted.
    setMode("exit0");
    startAndSettle();
    ASSERT_TRUE(queue.runUntil([&] { return logMessages().back() == "Velmora Server ended (code 0)"; }, 30));
    EXPECT_FALSE(supervisor->task());
    EXPECT_FALSE(supervisor->lastError());
    EXPECT_EQ(queue.pendingTimers(), 0u);
}

TEST_F(SupervisorTest, FailedChecksBecomeTheErrorLineAndMissingPermissionsShowTheWindow) {
    setAnswer("garbage");
    startAndSettle();
    EXPECT_EQ(supervisor->lastError(), "Velmora Server did not answer the permission check. See Show Log.");
    EXPECT_FALSE(supervisor->task());

    setAnswer("screen=0 input=1");
    startAndSettle();
    ASSERT_TRUE(owner.ready);
    EXPECT_FALSE(supervisor->task());
    // Once everything is allowed, the window's callback starts the server.
    setAnswer("screen=1 input=1");
    owner.ready();
    ASSERT_TRUE(queue.runUntil([&] { return supervisor->running(); }, 30));
    EXPECT_EQ(probes(), 3u);

    supervisor->stopServer();
    owner.executable = dir + "/nothing-here";
    supervisor->startServer();
    EXPECT_FALSE(supervisor->starting());
    EXPECT_EQ(supervisor->lastError(), platform::say(platform::words::serverNotFound));
}

TEST_F(SupervisorTest, ServerStillStartsWhenTheLogCannotBeOpened) {
    std::filesystem::create_directories(platform::AppLog::path());  // a folder where the log file should be
    startAndSettle();
    EXPECT_TRUE(supervisor->running());
    EXPECT_FALSE(supervisor->lastError());
}

TEST_F(SupervisorTest, ASpawnFailureBecomesTheErrorLine) {
    // A server that answers the probe and then removes itself, so that the launch finds nothing.
    std::string vanishing = writeScript(dir + "/vanishing", "echo 'screen=1 input=1'; rm -f \"$0\"\n");
    ::setenv("KORVEN_CLI", vanishing.c_str(), 1);
    owner.perms = HelperPerms::create(queue, owner.store, {.bundleRoot = dir + "/prefix"});
    owner.executable = vanishing;
    startAndSettle();
    EXPECT_FALSE(supervisor->task());
    EXPECT_EQ(supervisor->lastError(), "Could not start the server: No such file or directory");
    EXPECT_EQ(logMessages().back().rfind("starting Velmora Server: ", 0), 0u);
}

TEST_F(SupervisorTest, RestartsItScheduledKeepTryingAndAPortTakenByAnotherProgramIsNamed) {
    startAndSettle();
    queue.advance(10);
    setAnswer("garbage");  // the display hangs: the restarts' checks get no answer
    crash();
    for (double delay : {2.0, 4.0, 8.0}) {
        EXPECT_EQ(queue.secondsToNextTimer(), delay);
        queue.advanceToNextTimer();
        ASSERT_TRUE(queue.runUntil([&] { return !supervisor->starting() && supervisor->restartPending(); }, 30));
        EXPECT_EQ(supervisor->lastError(), "Velmora Server did not answer the permission check. See Show Log.");
    }
    setAnswer("screen=1 input=1");
    queue.advanceToNextTimer();
    ASSERT_TRUE(queue.runUntil([&] { return supervisor->running(); }, 30));

    // Another program on the port: said plainly; a start the user asked for is not repeated.
    supervisor->stopServer();
    test::LoopbackListener other;
    owner.store.set(Key::port, std::int64_t{other.port()});
    startAndSettle();
    const std::string port = std::to_string(other.port());
    EXPECT_EQ(supervisor->lastError(), "Port " + port + " is in use by another program.");
    EXPECT_FALSE(supervisor->restartPending());
    EXPECT_EQ(logMessages().back(), "port " + port + " is in use by another program; Velmora Server cannot listen on it");
}
