// The two report commands of the velmora executable, run as separate processes against a private
// home, a loopback service, a real listening port and a stand-in server process.

#include "process/spawn.h"
#include "platform/words.h"
#include "support/e2e_harness.h"
#include "support/http_server.h"
#include "support/loopback.h"
#include "support/run_command.h"
#include "support/temp_home.h"

#include <gtest/gtest.h>

#include <filesystem>

namespace velmora {
namespace {

TEST(ReportCommands, DiagnosticsAndTestConnectionReportTheSettingsTheLogAndTheServer) {
    // Both commands say whether a server runs on this machine: another Velmora's would change the answer.
    if (!Spawn::findServers().empty()) GTEST_SKIP() << "a Velmora server is running on this machine";
    test::TempHome home;
    test::HttpServer service;
    service.answer(200, "203.0.113.7\n");
    test::LoopbackListener listener;
    const std::string port = std::to_string(listener.port());
    test::writeFile(home.configHome() + "/velmora/defaults.json", "{\"port\": " + port + ", \"fps\": 24}");
    std::string log;
    for (int i = 1; i <= 85; ++i) log += "[10:00:00:000] [Velmora app] line " + std::to_string(i) + "\n";
    log += "env MAC_SHADOW_NLA=anna:00112233445566778899aabbccddeeff\n";
    test::writeFile(home.stateHome() + "/velmora/Velmora.log", log);
    auto velmora = [&](const std::string& command, const std::string& server) {
        auto result = test::runCommand({test::builtExecutable("bin/velmora"), command},
                                       {{"KORVEN_CLI", server}, {"VELMORA_SERVICE_URL", service.baseURL()}});
        EXPECT_EQ(result.exitCode, 0) << result.err;
        return result.out;
    };
    const std::string out = velmora("diagnostics", test::writeScript(home.path() + "/probe.sh", "echo \"screen=1 input=0\"\n"));
    EXPECT_NE(out.find("\nServer: stopped, port " + port + ", scale 0.75, max 24 fps (adaptive: on)\n"), std::string::npos)
        << out;
    EXPECT_NE(out.find("\nPermission " + platform::say(platform::words::inputPermission) + ": missing\n"), std::string::npos);
    // The probe runs first and logs its answer, so the excerpt ends with that line: 85 lines, the
    // environment line, the probe's line and the empty piece after the last line feed.
    EXPECT_NE(out.find("\nLast log lines:\n[10:00:00:000] [Velmora app] line 9\n"), std::string::npos) << out;
    EXPECT_NE(out.find("\nenv [removed]\n["), std::string::npos);
    // A server that cannot be asked leaves the permission lines out.
    const std::string missing = home.path() + "/missing";
    EXPECT_EQ(velmora("diagnostics", missing).find("Permission "), std::string::npos);

    const std::string stopped = velmora("test-connection", missing);
    EXPECT_EQ(stopped.rfind("The server is not running.", 0), 0u) << stopped;
    EXPECT_NE(stopped.find("Turn on \"Open Velmora at Login\""), std::string::npos);
    EXPECT_TRUE(service.requests().empty());

    // A sleep whose executable path ends like an installed server's, found once it has exec'd.
    const std::string path = home.path() + "/prefix/libexec/velmora/velmora-server";
    std::filesystem::create_directories(home.path() + "/prefix/libexec/velmora");
    std::filesystem::copy_file("/bin/sleep", path);
    test::BackgroundProcess server({path, "600"});
    test::eventually([&] { return test::commandLineOf(server.pid()).rfind(path, 0) == 0; }, 5);
    test::writeFile(home.configHome() + "/autostart/velmora.desktop", "[Desktop Entry]\n");
    const std::string running = velmora("test-connection", missing);
    // What answers on the port is this test, not the stand-in server: another program.
    EXPECT_EQ(running.rfind("Port " + port + " is in use by another program.", 0), 0u) << running;
    EXPECT_NE(running.find("\nYour public address is 203.0.113.7. Forward port " + port), std::string::npos);
    EXPECT_EQ(running.find("Turn on"), std::string::npos);  // opens at login now
}

}  // namespace
}  // namespace velmora
