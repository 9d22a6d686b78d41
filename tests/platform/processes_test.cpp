#include "platform/processes.h"
#include "process/spawn.h"
#include "support/e2e_harness.h"
#include "support/temp_home.h"

#include <gtest/gtest.h>

#include <csignal>
#include <filesystem>
#include <unistd.h>

using namespace velmora;

// A Velmora run as root stops its own leftover servers at start-up, never other users'.
TEST(Processes, LeftoversAreOnlyThisUsersProcesses) {
    if (::getuid() != 0) GTEST_SKIP() << "starting another user's process needs root";
    test::TempHome home;
    namespace fs = std::filesystem;
    const std::string suffix = "/leftover-" + std::to_string(::getpid()) + "/velmora-server";
    const std::string server = home.path() + suffix;
    fs::create_directories(fs::path(server).parent_path());
    fs::copy_file("/bin/sleep", server);
    for (const auto& folder : {home.path(), fs::path(server).parent_path().string()})
        fs::permissions(folder, fs::perms::group_exec | fs::perms::others_exec, fs::perm_options::add);

    auto own = Spawn::start(server, {"100"}, {}, std::nullopt, std::nullopt, false);
    auto others = Spawn::start("/usr/bin/setpriv", {"--reuid=65534", "--regid=65534", "--clear-groups", server, "100"},
                               {}, std::nullopt, std::nullopt, false);
    ASSERT_TRUE(test::eventually([&] { return platform::executablePathOf(others->pid()) == server; }, 10));
    EXPECT_EQ(Spawn::stopLeftovers(suffix), 1);
    ASSERT_TRUE(own->wait(10));
    EXPECT_TRUE(others->isRunning());
    ::kill(others->pid(), SIGKILL);
    EXPECT_TRUE(others->wait(10));
}
