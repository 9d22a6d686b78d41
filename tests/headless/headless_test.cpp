// Runs the real `velmora --headless` with a shell script as its server: one Velmora per user.

#include "platform/instance_socket.h"
#include "platform/paths.h"
#include "process/spawn.h"
#include "support/e2e_harness.h"
#include "support/keyring.h"
#include "support/run_command.h"
#include "support/temp_home.h"

#include <gtest/gtest.h>

#include <csignal>
#include <filesystem>
#include <fcntl.h>
#include <functional>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <tuple>
#include <unistd.h>

using namespace velmora;
using velmora::test::BackgroundProcess;
using velmora::test::readFile;
using velmora::test::writeFile;

namespace {

class HeadlessTest : public ::testing::Test {
protected:
    void SetUp() override {
        if (!Spawn::findServers().empty()) GTEST_SKIP() << "a Velmora server is running on this machine";
    }
    // A server that a failed assertion left behind (a Velmora is ended with its BackgroundProcess).
    void TearDown() override {
        if (test::fileExists(home.path() + "/server.pid")) ::kill(std::stoi(readFile(home.path() + "/server.pid")), SIGKILL);
    }

    std::unique_ptr<BackgroundProcess> startVelmora(const std::string& outName) {
        outPath = home.path() + "/" + outName;
        std::filesystem::remove(outPath);
        return std::make_unique<BackgroundProcess>(std::vector<std::string>{test::builtExecutable("bin/velmora"), "--headless"},
                                                   std::map<std::string, std::optional<std::string>>{{"KORVEN_CLI", server}},
                                                   outPath);
    }

    std::string log() const { return readFile(platform::logFilePath()); }

    test::TempHome home;
    std::string server = home.path() + "/server";
    std::string outPath;
};

int connectTo(const std::string& path) {
    int fd = ::socket(AF_UNIX, SOCK_STREAM, 0);
    ::fcntl(fd, F_SETFL, O_NONBLOCK);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    path.copy(address.sun_path, sizeof address.sun_path - 1);
    [[maybe_unused]] int connected = ::connect(fd, reinterpret_cast<sockaddr*>(&address), sizeof address);
    return fd;
}

}  // namespace

TEST_F(HeadlessTest, OneVelmoraPerUserAndACrashedOneDoesNotBlockTheNext) {
    // The server runs as an installed one would, so that a start-up clean-up would stop it.
    const std::string installed = home.path() + "/install" + platform::serverExecutableSuffix();
    writeFile(installed, readFile("/bin/sleep"));
    ::chmod(installed.c_str(), 0755);
    test::writeScript(server, "if [ -n \"$MAC_SHADOW_PERMS\" ]; then echo screen=1 input=1; exit 0; fi\n"
                              "echo $$ > '" + home.path() + "/server.pid'\nexec '" + installed + "' 1000\n");
    auto first = startVelmora("first");
    ASSERT_TRUE(test::eventually([&] { return test::fileExists(home.path() + "/server.pid"); }, 20)) << log();
    pid_t serverPid = std::stoi(readFile(home.path() + "/server.pid"));

    auto second = startVelmora("second");
    EXPECT_EQ(second->waitForExit(30), 1);
    EXPECT_NE(readFile(outPath).find("Velmora is already running (pid " + std::to_string(first->pid()) + ")"),
              std::string::npos)
        << readFile(outPath);
    EXPECT_EQ(::kill(serverPid, 0), 0);
    EXPECT_FALSE(first->waitForExit(0));

    // A crash leaves the lock file and the server behind; the next start takes over both.
    first->signal(SIGKILL);
    ASSERT_TRUE(first->waitForExit(30));
    std::filesystem::remove(home.path() + "/server.pid");
    auto third = startVelmora("third");
    ASSERT_TRUE(test::eventually([&] { return test::fileExists(home.path() + "/server.pid"); }, 20)) << log();
    EXPECT_NE(log().find("] [Velmora app] stopped 1 Velmora Server left over from an earlier run (it held the port)\n"),
              std::string::npos)
        << log();
    EXPECT_TRUE(test::eventually([&] { return ::kill(serverPid, 0) != 0; }, 20));
    third->signal(SIGTERM);
    EXPECT_EQ(third->waitForExit(30), 0);
}

// Another user can make /tmp/velmora-<uid> first (when XDG_RUNTIME_DIR is unset): Velmora keeps its
// lock and socket only in a real folder of its own, and never writes through a planted link.
TEST_F(HeadlessTest, KeepsItsLockOnlyInAPrivateFolderOfItsOwn) {
    namespace fs = std::filesystem;
    const std::string folder = home.runtimeDir() + "/velmora";
    if (platform::runtimeDirectory() != folder) GTEST_SKIP() << "the runtime folder is not $XDG_RUNTIME_DIR/velmora here";
    const std::string precious = home.path() + "/precious.txt";
    writeFile(precious, "precious");
    fs::create_directories(home.path() + "/elsewhere");
    const std::vector<std::pair<std::function<bool()>, std::string>> plantings = {
        {[&] { fs::create_directories(folder);
               fs::create_symlink(precious, folder + "/velmora.lock");
               return true; }, folder + "/velmora.lock is a symbolic link"},
        {[&] { fs::create_directory_symlink(home.path() + "/elsewhere", folder); return true; },
         folder + " is a symbolic link"},
        {[&] { writeFile(folder, ""); return true; }, folder + " is not a folder"},
        // Only root can hand a folder to another user here.
        {[&] { return fs::create_directories(folder) && ::chown(folder.c_str(), 65534, 65534) == 0; },
         folder + " belongs to another user (uid 65534)"},
    };
    for (const auto& [plant, problem] : plantings) {
        fs::remove_all(folder);
        if (!plant()) continue;
        auto velmora = startVelmora("refused");
        EXPECT_EQ(velmora->waitForExit(20), 1) << problem;
        EXPECT_NE(readFile(outPath).find("velmora: not started: " + problem), std::string::npos) << readFile(outPath);
        EXPECT_EQ(readFile(precious), "precious");
    }
    // Its own folder, open to others: made private, then used.
    fs::remove_all(folder);
    fs::create_directories(folder);
    fs::permissions(folder, fs::perms::all);
    auto velmora = startVelmora("open");
    EXPECT_TRUE(test::eventually([&] { return fs::is_socket(folder + "/velmora.socket"); }, 20)) << readFile(outPath);
    EXPECT_EQ(fs::status(folder).permissions(), fs::perms::owner_all);
    velmora->signal(SIGTERM);
    EXPECT_EQ(velmora->waitForExit(30), 0);
}

// `velmora login set` and `login clear` reach the running server through the running Velmora's
// socket, which idle connections, an endless request and running out of descriptors never silence.
TEST_F(HeadlessTest, LoginChangesRestartTheServerAndTheSocketOutlastsIdleAndEndlessConnections) {
    VELMORA_REQUIRE_KEYRING();
    if (!std::filesystem::exists("/proc/self/fd")) GTEST_SKIP() << "needs /proc to count descriptors";
    const std::string noted = home.path() + "/server.pid";
    // The server notes its pid and the user of the Windows login it was given.
    test::writeScript(server, "if [ -n \"$MAC_SHADOW_PERMS\" ]; then echo screen=1 input=1; exit 0; fi\n"
                              "echo \"$$ ${MAC_SHADOW_NLA%%:*}\" > '" + noted + ".new' && mv '" + noted + ".new' '" +
                              noted + "'\nexec sleep 1000\n");
    auto velmora = startVelmora("out");
    ASSERT_TRUE(test::eventually([&] { return test::fileExists(noted); }, 20)) << log();
    const std::string velmoraCli = test::builtExecutable("bin/velmora");
    // What the command says, and the end of what the restarted server notes.
    const std::tuple<std::vector<std::string>, std::string, std::string> steps[] = {
        {{velmoraCli, "login", "set", "anna"}, "The running server was restarted with the new Windows login.\n", " anna\n"},
        {{velmoraCli, "login", "clear"}, "The running server was restarted without a Windows login.\n", " \n"}};
    for (const auto& [argv, said, restarted] : steps) {
        const std::string before = readFile(noted), ending = restarted;
        auto result = test::runCommand(argv, {}, "secret\n");
        EXPECT_EQ(result.exitCode, 0) << result.err;
        EXPECT_EQ(result.out, said);
        EXPECT_TRUE(test::eventually([&] { return readFile(noted) != before && readFile(noted).ends_with(ending); }, 20))
            << readFile(noted) << log();
    }

    const std::string socket = platform::socketPath();
    int endless = connectTo(socket);
    const std::string noLineEnd(65536, 'x');
    [[maybe_unused]] ssize_t sent = ::send(endless, noLineEnd.data(), noLineEnd.size(), 0);
    pollfd answer{endless, POLLIN, 0};
    char byte = 0;
    EXPECT_TRUE(::poll(&answer, 1, 10000) == 1 && ::read(endless, &byte, 1) <= 0) << "the endless request was cut off";
    // Three descriptors to spare: the idle connections run Velmora out of them.
    const auto open = std::distance(std::filesystem::directory_iterator("/proc/" + std::to_string(velmora->pid()) + "/fd"),
                                    std::filesystem::directory_iterator());
    const std::string limit = std::to_string(open + 3);
    ASSERT_EQ(test::runCommand({"/usr/bin/prlimit", "--pid", std::to_string(velmora->pid()), "--nofile=" + limit})
                  .exitCode, 0);
    std::vector<int> idle;
    for (int i = 0; i < 100; ++i) idle.push_back(connectTo(socket));
    auto second = test::runCommand({velmoraCli});
    EXPECT_EQ(second.exitCode, 0) << second.err;
    for (int fd : idle) ::close(fd);
    ::close(endless);
    velmora->signal(SIGTERM);
    EXPECT_EQ(velmora->waitForExit(30), 0);
}
