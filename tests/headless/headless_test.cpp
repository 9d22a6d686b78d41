// Runs the real `velmora --headless` with a shell script as its server: one Velmora per user.

#include "core/environment.h"
#include "platform/paths.h"
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
    }
    // Whatever a failed assertion left running.
    void TearDown() override {
        for (auto& velmora : started) {
            if (!velmora->isRunning()) continue;
            ::kill(velmora->pid(), SIGKILL);
            velmora->wait(10);
        }
        if (test::fileExists(home.path() + "/server.pid")) ::kill(std::stoi(readFile(home.path() + "/server.pid")), SIGKILL);
    }

    std::shared_ptr<SpawnedProcess> startVelmora(const std::string& errName) {
        Environment environment = processEnvironment();
        environment["KORVEN_CLI"] = server;
        errPath = home.path() + "/" + errName;
        int err = ::open(errPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
        auto velmora = Spawn::start(test::builtExecutable("bin/velmora"), {"--headless"}, environment, std::nullopt,
                                    err, false);
        ::close(err);
        started.push_back(velmora);
        return velmora;
    }

    std::string log() const { return readFile(platform::logFilePath()); }

    TempHome home;
    std::string server = home.path() + "/server";
    std::string errPath;
    std::vector<std::shared_ptr<SpawnedProcess>> started;
};

}  // namespace

TEST_F(HeadlessTest, OneVelmoraPerUserAndACrashedOneDoesNotBlockTheNext) {
    // The server runs as an installed one would, so that a start-up clean-up would stop it.
    const std::string installed = home.path() + "/install" + platform::serverExecutableSuffix();
    writeFile(installed, readFile("/bin/sleep"));
    ::chmod(installed.c_str(), 0755);
    writeFile(server, "#!/bin/sh\n"
                      "if [ -n \"$MAC_SHADOW_PERMS\" ]; then echo screen=1 input=1; exit 0; fi\n"
                      "echo $$ > '" + home.path() + "/server.pid'\n"
                      "exec '" + installed + "' 1000\n");
    ::chmod(server.c_str(), 0755);
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
