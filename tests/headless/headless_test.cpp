// Runs the real `velmora --headless` with a shell script as its server.

#include "core/environment.h"
#include "platform/paths.h"
#include "platform/processes.h"
#include "process/spawn.h"
#include "support/e2e_harness.h"
#include "support/run_command.h"
#include "support/temp_home.h"

#include <gtest/gtest.h>

#include <csignal>
#include <filesystem>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

using namespace velmora;
using velmora::test::readFile;
using velmora::test::TempHome;
using velmora::test::writeFile;

namespace {


class HeadlessTest : public ::testing::Test {
protected:
    void SetUp() override {
        if (!Spawn::findServers().empty()) GTEST_SKIP() << "a Velmora server is running on this machine";
        writeFile(home.path() + "/answer", "screen=1 input=1\n");
        server = home.path() + "/server";
        writeFile(server, "#!/bin/sh\n"
                          "if [ -n \"$MAC_SHADOW_PERMS\" ]; then cat '" + home.path() + "/answer'; exit 0; fi\n"
                          "echo $$ > '" + home.path() + "/server.pid'\n"
                          // The first run crashes at once, the next ones keep running.
                          "if [ ! -e '" + home.path() + "/crashed' ]; then touch '" + home.path() + "/crashed'; exit 1; fi\n"
                          "echo \"fake server $*\"\n"
                          "exec sleep 1000\n");
        ::chmod(server.c_str(), 0755);
    }

    std::shared_ptr<SpawnedProcess> startVelmora(const std::string& errName = "stderr") {
        Environment environment = processEnvironment();
        environment["KORVEN_CLI"] = server;
        errPath = home.path() + "/" + errName;
        int err = ::open(errPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
        auto velmora = Spawn::start(test::builtExecutable("bin/velmora"), {"--headless"}, environment, std::nullopt,
                                    err, false);
        ::close(err);
        return velmora;
    }

    std::string log() const { return readFile(platform::logFilePath()); }

    TempHome home;
    std::string server;
    std::string errPath;
};

}  // namespace

TEST_F(HeadlessTest, StopsLeftoversSupervisesTheServerAndReportsMissingPermissions) {
    // A server of an "earlier run": any executable whose path ends like an installed server's.
    std::string leftoverPath = home.path() + "/old-install" + platform::serverExecutableSuffix();
    writeFile(leftoverPath, readFile("/bin/sleep"));
    ::chmod(leftoverPath.c_str(), 0755);
    auto leftover = Spawn::start(leftoverPath, {"1000"}, {}, std::nullopt, std::nullopt, false);

    auto velmora = startVelmora();
    // The crash is followed by a restart on the event loop's timer, two seconds later.
    ASSERT_TRUE(test::eventually([&] { return log().find("fake server /port:3389") != std::string::npos; }, 20)) << log();
    EXPECT_TRUE(leftover->wait(30));
    EXPECT_EQ(leftover->exitCode(), 143);
    pid_t serverPid = std::stoi(readFile(home.path() + "/server.pid"));
    EXPECT_EQ(::kill(serverPid, 0), 0);

    ::kill(velmora->pid(), SIGTERM);
    ASSERT_TRUE(velmora->wait(30));
    EXPECT_EQ(velmora->exitCode(), 0);
    EXPECT_NE(::kill(serverPid, 0), 0);  // stopped, and reaped by velmora
    std::string text = log();
    EXPECT_NE(text.find("] [Velmora app] stopped 1 Velmora Server left over from an earlier run (it held the port)\n"),
              std::string::npos)
        << text;
    EXPECT_NE(text.find("] [Velmora app] permission check: screen=1 input=1\n"), std::string::npos) << text;
    EXPECT_NE(text.find("] [Velmora app] starting Velmora Server: /port:3389 "), std::string::npos) << text;
    EXPECT_NE(text.find("] [Velmora app] Velmora Server stopped\n"), std::string::npos) << text;
    auto crash = text.find("] [Velmora app] Velmora Server ended (code 1)\n");
    auto restart = text.find("] [Velmora app] starting Velmora Server again in 2 s (1 unexpected end in a row)\n");
    auto second = text.find("starting Velmora Server: ", restart);
    EXPECT_NE(crash, std::string::npos) << text;
    EXPECT_LT(crash, restart);
    EXPECT_NE(second, std::string::npos) << text;
    EXPECT_EQ(text.find("ended (code", restart), std::string::npos) << text;  // the stop is no end
    EXPECT_NE(readFile(errPath).find("Velmora Server running"), std::string::npos);

    // Then with "autoStart" off and a permission missing. (One test: a velmora --headless running
    // beside this one would stop its leftover.)
    writeFile(home.path() + "/answer", "screen=1 input=0\n");
    writeFile(platform::defaultsLocation(), "{\"autoStart\": false}");
    std::filesystem::remove(platform::logFilePath());
    velmora = startVelmora();
    const std::string line = "Velmora Server lacks permission (Accessibility)";
    ASSERT_TRUE(test::eventually([&] { return readFile(errPath).find(line) != std::string::npos; }, 20)) << readFile(errPath);
    ::kill(velmora->pid(), SIGINT);
    ASSERT_TRUE(velmora->wait(30));
    EXPECT_EQ(velmora->exitCode(), 0);
    text = log();
    EXPECT_NE(text.find("] [Velmora app] " + line), std::string::npos) << text;
    EXPECT_EQ(text.find("starting Velmora Server"), std::string::npos) << text;
}

TEST_F(HeadlessTest, OneVelmoraPerUserAndACrashedOneDoesNotBlockTheNext) {
    // The server runs as an installed one would, so that a start-up clean-up would stop it.
    const std::string installed = home.path() + "/install" + platform::serverExecutableSuffix();
    writeFile(installed, readFile("/bin/sleep"));
    ::chmod(installed.c_str(), 0755);
    writeFile(server, "#!/bin/sh\n"
                      "if [ -n \"$MAC_SHADOW_PERMS\" ]; then echo screen=1 input=1; exit 0; fi\n"
                      "echo $$ > '" + home.path() + "/server.pid'\n"
                      "exec '" + installed + "' 1000\n");
    auto first = startVelmora("first");
    ASSERT_TRUE(test::eventually([&] { return test::fileExists(home.path() + "/server.pid"); }, 20)) << log();
    pid_t serverPid = std::stoi(readFile(home.path() + "/server.pid"));

    auto second = startVelmora("second");
    ASSERT_TRUE(second->wait(30));
    EXPECT_EQ(second->exitCode(), 1);
    EXPECT_NE(readFile(errPath).find("Velmora is already running (pid " + std::to_string(first->pid()) + ")"),
              std::string::npos)
        << readFile(errPath);
    EXPECT_EQ(::kill(serverPid, 0), 0);
    EXPECT_TRUE(first->isRunning());

    // A crash leaves the lock file and the server behind; the next start takes over both.
    ::kill(first->pid(), SIGKILL);
    ASSERT_TRUE(first->wait(30));
    std::filesystem::remove(home.path() + "/server.pid");
    auto third = startVelmora("third");
    ASSERT_TRUE(test::eventually([&] { return test::fileExists(home.path() + "/server.pid"); }, 20)) << log();
    EXPECT_NE(log().find("] [Velmora app] stopped 1 Velmora Server left over from an earlier run (it held the port)\n"),
              std::string::npos)
        << log();
    EXPECT_TRUE(test::eventually([&] { return ::kill(serverPid, 0) != 0; }, 20));
    ::kill(third->pid(), SIGTERM);
    ASSERT_TRUE(third->wait(30));
    EXPECT_EQ(third->exitCode(), 0);
}
