// The whole system on Linux: the real `velmora --headless` with the Windows login in the real
// keyring, velmora-server, the FreeRDP shadow server under Xvfb and xfreerdp as the client.

#include "process/spawn.h"
#include "platform/paths.h"
#include "platform/processes.h"
#include "process/server_cert.h"
#include "support/e2e_harness.h"
#include "support/loopback.h"
#include "support/keyring.h"
#include "support/run_command.h"
#include "support/temp_home.h"

#include <csignal>
#include <filesystem>
#include <gtest/gtest.h>

using namespace velmora;
using namespace velmora::test;

namespace {



class VelmoraE2e : public ::testing::Test {
protected:
    void SetUp() override {
        std::string missing = missingE2ePrerequisite();
        if (!missing.empty()) GTEST_SKIP() << missing;
        if (!Spawn::findServers().empty()) GTEST_SKIP() << "a Velmora server is running on this machine";
        VELMORA_REQUIRE_KEYRING();
        xvfb_ = std::make_unique<Xvfb>();
        ASSERT_TRUE(xvfb_->running()) << "Xvfb did not start";
        port_ = closedLoopbackPort();
        writeFile(platform::defaultsLocation(), "{\"port\": " + std::to_string(port_) + "}");
        auto stored = runCommand({velmora_, "login", "set", "anna"}, {}, password_ + "\n");
        ASSERT_EQ(stored.exitCode, 0) << stored.err;
        loginStored_ = true;
    }

    void TearDown() override {
        velmora_process_.reset();
        if (loginStored_) runCommand({velmora_, "login", "clear"});
    }

    void startVelmora() {
        velmora_process_ = std::make_unique<BackgroundProcess>(
            std::vector<std::string>{velmora_, "--headless"},
            std::map<std::string, std::optional<std::string>>{
                {"DISPLAY", xvfb_->display()}, {"KORVEN_CLI", std::nullopt}},
            home_.path() + "/velmora.err");
    }

    std::string log() const { return readFile(platform::logFilePath()); }

    // Velmora's current velmora-server (the shadow server runs inside it), or -1.
    pid_t shadowServer() const {
        for (pid_t child : childrenOf(velmora_process_->pid())) {
            std::error_code error;
            if (std::filesystem::read_symlink("/proc/" + std::to_string(child) + "/exe", error) == helper_) return child;
        }
        return -1;
    }

    void stopVelmora() {
        velmora_process_->signal(SIGTERM);
        EXPECT_EQ(velmora_process_->waitForExit(60), 0);
    }

    TempHome home_;
    std::unique_ptr<Xvfb> xvfb_;
    std::unique_ptr<BackgroundProcess> velmora_process_;
    int port_ = 0;
    bool loginStored_ = false;
    const std::string velmora_ = builtExecutable("bin/velmora");
    const std::string helper_ = std::filesystem::canonical(builtExecutable("libexec/velmora/velmora-server")).string();
    const std::string password_ = "correct horse \xc3\xa9";
};

}  // namespace

TEST_F(VelmoraE2e, StoredWindowsLoginLetsTheRightPasswordInAndANamelessCertificateIsReplaced) {
    // A certificate without a subject name, as left by some older server.
    const std::string folder = ServerCert::directory();
    std::filesystem::create_directories(folder);
    auto made = runCommand({"/usr/bin/openssl", "req", "-x509", "-newkey", "rsa:2048", "-nodes", "-days", "1",
                            "-subj", "/", "-keyout", folder + "/shadow.key", "-out", folder + "/shadow.crt"});
    ASSERT_EQ(made.exitCode, 0) << made.err;
    ASSERT_FALSE(ServerCert::subjectName(readFile(folder + "/shadow.crt")));

    startVelmora();
    ASSERT_TRUE(waitForListening(port_, 90, velmora_process_.get())) << log();
    pid_t server = shadowServer();
    ASSERT_GT(server, 0) << log();

    EXPECT_EQ(rdpClient(xvfb_->display(), port_, "anna", password_), 0) << log();
    EXPECT_NE(rdpClient(xvfb_->display(), port_, "anna", "wrong"), 0);

    std::string text = log();
    EXPECT_NE(text.find("] [Velmora app] removed the server certificate without a name; the server makes a new one "
                        "(clients will ask to trust it once)\n"),
              std::string::npos)
        << text;
    EXPECT_NE(text.find("] [Velmora app] starting Velmora Server: /port:" + std::to_string(port_) +
                        " +auth /sec:tls +sec-nla "),
              std::string::npos)
        << text;
    EXPECT_TRUE(ServerCert::subjectName(readFile(folder + "/shadow.crt"))) << "the server made no named certificate";
    EXPECT_TRUE(fileExists(folder + "/shadow.key"));

    stopVelmora();
    EXPECT_TRUE(waitForProcessGone(server, 20));
    EXPECT_NE(log().find("] [Velmora app] Velmora Server stopped\n"), std::string::npos);
}

TEST_F(VelmoraE2e, KilledServerIsStartedAgainAndAllEndsWithVelmora) {
    startVelmora();
    ASSERT_TRUE(waitForListening(port_, 90, velmora_process_.get())) << log();
    pid_t first = shadowServer();
    ASSERT_GT(first, 0) << log();

    ::kill(first, SIGKILL);
    ASSERT_TRUE(waitForProcessGone(first, 20));
    // The helper ends with 128 + 9; Velmora logs the end and schedules the restart.
    ASSERT_TRUE(eventually([&] {
        return log().find("] [Velmora app] starting Velmora Server again in 2 s (1 unexpected end in a row)\n") !=
               std::string::npos;
    }, 30)) << log();
    EXPECT_NE(log().find("] [Velmora app] Velmora Server ended (code 137)\n"), std::string::npos) << log();

    pid_t second = -1;
    ASSERT_TRUE(eventually([&] { return (second = shadowServer()) > 0 && second != first; }, 60)) << log();
    ASSERT_TRUE(waitForListening(port_, 60, velmora_process_.get())) << log();
    EXPECT_EQ(rdpClient(xvfb_->display(), port_, "anna", password_), 0) << log();

    // Velmora killed outright: its server notices and ends.
    velmora_process_->signal(SIGKILL);
    EXPECT_TRUE(waitForProcessGone(second, 20));
}
