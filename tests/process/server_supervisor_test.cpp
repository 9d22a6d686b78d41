#include "process/server_supervisor.h"

#include "core/manual_queue.h"
#include "permissions/helper_perms.h"
#include "platform/app_log.h"
#include "platform/paths.h"
#include "platform/words.h"
#include "settings/settings_store.h"
#include "settings/keys.h"
#include "support/log_lines.h"
#include "support/loopback.h"
#include "support/scoped_env.h"
#include "support/temp_home.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <csignal>
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

    std::optional<std::string> serverExecutable() const override { return executable; }
    void checkServerPermissions(std::function<void(StartPermission)> answer) override {
        perms->check([answer](std::optional<PermStatus> status) {
            answer(!status ? StartPermission::noAnswer : status->allOK() ? StartPermission::granted : StartPermission::missing);
        });
    }
    ServerSettings settingsForLaunch() override { return currentSettings(store, [] { return std::nullopt; }); }
    void permissionsMissing(std::function<void()> startAgain) override { ready = std::move(startAgain); }
    void serverStateChanged() override {}  // the menu follows the state: see the tray test
};

// A server helper played by a script: it answers the probe with the contents of the file
// "answer", and otherwise runs until stopped, or ends at once with the code in the file "exit".
class SupervisorTest : public ::testing::Test {
protected:
    void SetUp() override {
        platform::makeDirectories(platform::logDirectory());
        setAnswer("screen=1 input=1");
        writeScript(dir + "/prefix/libexec/velmora/velmora-server",
                    "cd '" + dir + "'\nif [ -n \"$MAC_SHADOW_PERMS\" ]; then echo probe >> calls; cat answer; exit 0; fi\n"
                    "echo \"server running with $*\"\n[ -s exit ] && exit \"$(cat exit)\"\nexec sleep 1000\n");
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
    void exitWith(int code) { writeFile(dir + "/exit", std::to_string(code)); }
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
    ScopedEnv noOverride{"KORVEN_CLI", std::nullopt};
    const std::string dir = home.path();
    ManualQueue queue;
    Owner owner;
    std::shared_ptr<ServerSupervisor> supervisor;
};

}  // namespace

TEST_F(SupervisorTest, StartChecksPermissionsThenLaunchesWithOutputInTheLogAndAStopIsNoEnd) {
    supervisor->startServer();
    supervisor->startServer();  // ignored: a check is under way
    EXPECT_EQ(supervisor->idleStatusLine(), "Checking permissions…");
    ASSERT_TRUE(queue.runUntil([&] { return supervisor->running(); }, 30));
    supervisor->startServer();  // ignored: running
    queue.runPending();
    EXPECT_EQ(probes(), 1u);

    // The server's own line arrives whenever the script gets to it.
    for (int i = 0; i < 10000 && readFile(platform::AppLog::path()).find("server running with") == std::string::npos; ++i)
        ::usleep(1000);
    auto messages = logMessages();
    ASSERT_EQ(messages.size(), 3u);  // the check's line, and nothing about disclaiming on a system without it
    EXPECT_EQ(messages[1].rfind("starting Velmora Server: /port:3389 ", 0), 0u) << messages[1];
    EXPECT_EQ(messages[2].rfind("server running with /port:3389 ", 0), 0u) << messages[2];  // the server's own line

    pid_t pid = supervisor->task()->pid();
    supervisor->toggleServer();
    EXPECT_NE(::kill(pid, 0), 0);
    queue.runPending();  // the watcher's end arrives, but a deliberate stop is no unexpected end
    EXPECT_EQ(logMessages().back(), "Velmora Server stopped");
    EXPECT_EQ(logMessages().size(), 4u);
    EXPECT_EQ(queue.pendingTimers(), 0u);
    EXPECT_EQ(supervisor->idleStatusLine(), "Stopped");
}

TEST_F(SupervisorTest, CrashesRestartAfterGrowingDelaysAndALongRunResetsTheCount) {
    startAndSettle();
    std::vector<double> delays;
    for (int round = 0; round < 7; ++round) {
        queue.advance(10);  // each run lasts 10 s on the main queue's clock
        crash();
        EXPECT_EQ(supervisor->idleStatusLine(), "Stopped unexpectedly (code 137)");
        delays.push_back(queue.secondsToNextTimer());
        queue.advanceToNextTimer();
        ASSERT_TRUE(queue.runUntil([&] { return supervisor->running(); }, 30));
        EXPECT_FALSE(supervisor->lastError());  // cleared at launch
    }
    EXPECT_EQ(delays, (std::vector<double>{2, 4, 8, 16, 32, 60, 60}));
    EXPECT_EQ(probes(), 8u);  // every restart checks the permissions again
    queue.advance(301);
    crash();
    EXPECT_EQ(queue.secondsToNextTimer(), 2);

    auto log = logMessages();
    EXPECT_EQ(std::vector(log.end() - 2, log.end()),
              (std::vector<std::string>{"Velmora Server ended (code 137)",
                                        "starting Velmora Server again in 2 s (1 unexpected end in a row)"}));
    EXPECT_EQ(std::count(log.begin(), log.end(), "starting Velmora Server again in 60 s (7 unexpected ends in a row)"), 1);

    // The display hangs: the restarts' checks get no answer, and the restarts it scheduled keep trying.
    setAnswer("garbage");
    for (double delay : {2.0, 4.0, 8.0}) {
        EXPECT_EQ(queue.secondsToNextTimer(), delay);
        queue.advanceToNextTimer();
        ASSERT_TRUE(queue.runUntil([&] { return !supervisor->starting() && supervisor->restartPending(); }, 30));
        EXPECT_EQ(supervisor->lastError(), "Velmora Server did not answer the permission check. See Show Log.");
    }
    setAnswer("screen=1 input=1");
    queue.advanceToNextTimer();
    ASSERT_TRUE(queue.runUntil([&] { return supervisor->running(); }, 30));
}

TEST_F(SupervisorTest, StopCancelsAPendingRestartAndNeitherACleanEndNorATakenPortIsRestarted) {
    exitWith(1);
    startAndSettle();
    ASSERT_TRUE(queue.runUntil([&] { return supervisor->restartPending(); }, 30));
    EXPECT_EQ(supervisor->lastError(), "Stopped unexpectedly (code 1)");
    supervisor->stopServer();
    queue.advance(120);
    EXPECT_EQ(probes(), 1u);  // no restart: it would check first
    EXPECT_EQ(supervisor->unexpectedEnds(), 1);  // the streak survives a stop

    exitWith(0);
    startAndSettle();
    ASSERT_TRUE(queue.runUntil([&] { return logMessages().back() == "Velmora Server ended (code 0)"; }, 30));
    EXPECT_FALSE(supervisor->lastError());
    EXPECT_EQ(queue.pendingTimers(), 0u);

    // Another program on the port: said plainly; a start the user asked for is not repeated.
    LoopbackListener other;
    const std::string port = std::to_string(other.port());
    owner.store.set(Key::port, std::int64_t{other.port()});
    startAndSettle();
    EXPECT_EQ(supervisor->lastError(), "Port " + port + " is in use by another program.");
    EXPECT_FALSE(supervisor->restartPending());
    EXPECT_EQ(logMessages().back(), "port " + port + " is in use by another program; Velmora Server cannot listen on it");
}

TEST_F(SupervisorTest, FailedChecksAndLaunchesBecomeTheErrorLineAndMissingPermissionsWaitForTheWindow) {
    std::filesystem::create_directories(platform::AppLog::path());  // no log: the server still starts, below
    setAnswer("garbage");
    startAndSettle();
    EXPECT_EQ(supervisor->lastError(), "Velmora Server did not answer the permission check. See Show Log.");

    setAnswer("screen=0 input=1");
    startAndSettle();
    ASSERT_TRUE(owner.ready);
    setAnswer("screen=1 input=1");
    owner.ready();  // once everything is allowed, the window's callback starts the server
    ASSERT_TRUE(queue.runUntil([&] { return supervisor->running(); }, 30));
    supervisor->stopServer();

    owner.executable = dir + "/nothing-here";
    supervisor->startServer();
    EXPECT_EQ(supervisor->lastError(), platform::say(platform::words::serverNotFound));

    // A server that answers the probe and then removes itself, so that the launch finds nothing.
    owner.executable = writeScript(dir + "/vanishing", "echo 'screen=1 input=1'; rm -f \"$0\"\n");
    ScopedEnv korven("KORVEN_CLI", owner.executable);
    owner.perms = HelperPerms::create(queue, owner.store, {.bundleRoot = dir + "/prefix"});
    startAndSettle();
    EXPECT_EQ(supervisor->lastError(), "Could not start the server: No such file or directory");
}
