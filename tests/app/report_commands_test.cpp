// The two report commands of the velmora executable, run as separate processes against a private
// home, a loopback service, a real listening port and a stand-in server process.

#include "process/spawn.h"
#include "platform/paths.h"
#include "platform/words.h"
#include "platform/processes.h"
#include "support/e2e_harness.h"
#include "support/http_server.h"
#include "support/loopback.h"
#include "support/run_command.h"
#include "support/temp_home.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <unistd.h>

namespace velmora {
namespace {

// A long sleep whose executable path ends like an installed server's; killed at the end.
std::unique_ptr<test::BackgroundProcess> standInServer(const std::string& root) {
    const std::string path = root + "/libexec/velmora/velmora-server";
    std::filesystem::create_directories(root + "/libexec/velmora");
    std::filesystem::copy_file("/bin/sleep", path);
    auto server = std::make_unique<test::BackgroundProcess>(std::vector<std::string>{path, "600"});
    // Returned once it runs as the server: the commands look for it at once.
    test::eventually([&] { return test::commandLineOf(server->pid()).rfind(path, 0) == 0; }, 5);
    return server;
}

// Both commands say whether a server runs on this machine: another Velmora's would change the answer.
#define SKIP_WHILE_ANOTHER_SERVER_RUNS()                                                      \
    if (!Spawn::findServers().empty()) GTEST_SKIP() << "a Velmora server is running on this machine"

TEST(ReportCommands, DiagnosticsPrintsSettingsPermissionsAndTheRedactedLogEnd) {
    SKIP_WHILE_ANOTHER_SERVER_RUNS();
    test::TempHome home;
    test::writeFile(home.configHome() + "/velmora/defaults.json", R"({"port": 4000, "fps": 24})");
    std::string log;
    for (int i = 1; i <= 85; ++i) log += "[10:00:00:000] [Velmora app] line " + std::to_string(i) + "\n";
    log += "env MAC_SHADOW_NLA=anna:00112233445566778899aabbccddeeff\n";
    test::writeFile(home.stateHome() + "/velmora/Velmora.log", log);
    std::string probe = test::writeScript(home.path() + "/probe.sh", "echo \"screen=1 input=0\"\n");

    auto result = test::runCommand({test::builtExecutable("bin/velmora"), "diagnostics"}, {{"KORVEN_CLI", probe}});
    ASSERT_EQ(result.exitCode, 0) << result.err;
    EXPECT_EQ(result.out.rfind("Velmora ", 0), 0u);
    EXPECT_NE(result.out.find("\nServer: stopped, port 4000, scale 0.75, max 24 fps (adaptive: on)\n"), std::string::npos)
        << result.out;
    EXPECT_NE(result.out.find("\nPermission " + platform::say(platform::words::screenPermission) + ": granted\nPermission " +
                              platform::say(platform::words::inputPermission) + ": missing\n"),
              std::string::npos)
        << result.out;
    // The probe runs first and logs its answer, so the excerpt ends with that line: 85 lines, the
    // environment line, the probe's line and the empty piece after the last line feed.
    EXPECT_NE(result.out.find("\nLast log lines:\n[10:00:00:000] [Velmora app] line 9\n"), std::string::npos)
        << result.out;
    EXPECT_NE(result.out.find("\nenv [removed]\n["), std::string::npos);
    EXPECT_NE(result.out.find("] [Velmora app] permission check: screen=1 input=0\n\n"), std::string::npos);
    EXPECT_EQ(result.out.find("00112233445566778899aabbccddeeff"), std::string::npos);

    // A server that cannot be asked leaves the permission lines out.
    auto unasked = test::runCommand({test::builtExecutable("bin/velmora"), "diagnostics"},
                                    {{"KORVEN_CLI", home.path() + "/missing"}});
    EXPECT_EQ(unasked.exitCode, 0);
    EXPECT_EQ(unasked.out.find("Permission "), std::string::npos);
}

TEST(ReportCommands, TestConnectionReportsTheRunningServerAndWhoHoldsItsPort) {
    SKIP_WHILE_ANOTHER_SERVER_RUNS();
    test::TempHome home;
    test::HttpServer service;
    service.answer(200, "203.0.113.7\n");
    test::LoopbackListener listener;
    test::writeFile(home.configHome() + "/velmora/defaults.json",
                    "{\"port\": " + std::to_string(listener.port()) + "}");
    const std::string velmora = test::builtExecutable("bin/velmora");

    auto stopped = test::runCommand({velmora, "test-connection"}, {{"VELMORA_SERVICE_URL", service.baseURL()}});
    ASSERT_EQ(stopped.exitCode, 0) << stopped.err;
    EXPECT_EQ(stopped.out.rfind("The server is not running.", 0), 0u) << stopped.out;
    EXPECT_NE(stopped.out.find("Turn on \"Open Velmora at Login\""), std::string::npos);
    EXPECT_TRUE(service.requests().empty());

    auto server = standInServer(home.path() + "/prefix");
    test::writeFile(home.configHome() + "/autostart/velmora.desktop", "[Desktop Entry]\n");
    auto running = test::runCommand({velmora, "test-connection"}, {{"VELMORA_SERVICE_URL", service.baseURL()}});
    ASSERT_EQ(running.exitCode, 0) << running.err;
    // What answers on the port is this test, not the stand-in server: another program.
    EXPECT_EQ(running.out.rfind("Port " + std::to_string(listener.port()) + " is in use by another program.", 0), 0u)
        << running.out;
    EXPECT_NE(running.out.find("\nYour public address is 203.0.113.7. Forward port " + std::to_string(listener.port())),
              std::string::npos);
    EXPECT_EQ(running.out.find("Turn on"), std::string::npos);  // opens at login now
    EXPECT_EQ(service.requests().size(), 1u);
}

}  // namespace
}  // namespace velmora
