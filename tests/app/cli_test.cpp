#include "support/keyring.h"
#include "support/run_command.h"
#include "support/temp_home.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <tuple>

using namespace velmora;

TEST(CommandLine, PlanPrintsArgumentsThenTheChangedEnvironmentForTheStoredSettings) {
    test::TempHome home;
    test::writeFile(home.configHome() + "/velmora/defaults.json",
                    R"({"port": 3390, "requireLogin": false, "cursorInVideo": true, "maxWidth": 0, "security": "rdp"})");
    const std::map<std::string, std::optional<std::string>> env = {
        {"MAC_SHADOW_MAX_WIDTH", "1280"},
        {"MAC_SHADOW_NLA", "leaked:8846f7eaee8fb117ad06bdd830b7586c"},
        {"WLOG_LEVEL", std::nullopt},
        {"DBUS_SESSION_BUS_ADDRESS", "unix:path=" + home.path() + "/no-bus"}};
    auto result = test::runCommand({test::builtExecutable("bin/velmora"), "plan"}, env);
    ASSERT_EQ(result.exitCode, 0) << result.err;
    EXPECT_EQ(result.out.substr(0, result.out.find("\n\n") + 2),
              "/port:3390\n-auth\n/sec:tls\n-gfx-avc444\n/max-connections:5\n\n");
    EXPECT_NE(result.out.find("\nMAC_SHADOW_CURSOR=1\n"), std::string::npos);
    EXPECT_NE(result.out.find("\n-MAC_SHADOW_MAX_WIDTH\n"), std::string::npos);
    EXPECT_NE(result.out.find("\n-MAC_SHADOW_NLA\n"), std::string::npos);
    EXPECT_NE(result.out.find("\nWLOG_LEVEL=INFO\n"), std::string::npos);
    EXPECT_EQ(result.out.find("HOME="), std::string::npos) << "unchanged variables are not listed";
    EXPECT_EQ(result.out.find("8846f7"), std::string::npos);
    // The legacy key was migrated away on the way.
    EXPECT_EQ(test::readFile(home.configHome() + "/velmora/defaults.json").find("security"), std::string::npos);
}

TEST(CommandLine, UnknownCommandsPrintUsageAndFail) {
    auto result = test::runCommand({test::builtExecutable("bin/velmora"), "frobnicate"});
    EXPECT_EQ(result.exitCode, 2);
    EXPECT_NE(result.err.find("usage: velmora"), std::string::npos);
    EXPECT_EQ(test::runCommand({test::builtExecutable("bin/velmora"), "login", "set"}).exitCode, 2);
}

namespace {

// The value after '=' of openssl's one-line answer ("sha256 Fingerprint=AB:…", "notAfter=…").
std::string opensslValue(const std::vector<std::string>& arguments) {
    std::vector<std::string> argv = {"/usr/bin/openssl"};
    argv.insert(argv.end(), arguments.begin(), arguments.end());
    auto result = test::runCommand(argv);
    EXPECT_EQ(result.exitCode, 0) << result.err;
    std::string line = result.out.substr(0, result.out.find('\n'));
    return line.substr(line.find('=') + 1);
}

}  // namespace

TEST(CommandLine, CertificateShowsWhatOpensslShowsOrSaysThereIsNoneYet) {
    test::TempHome home;
    const std::string velmora = test::builtExecutable("bin/velmora");
    const std::string folder = home.configHome() + "/freerdp/shadow";

    auto none = test::runCommand({velmora, "certificate"});
    EXPECT_EQ(none.exitCode, 1);
    EXPECT_EQ(none.out, "");
    EXPECT_NE(none.err.find("has not made its certificate yet (" + folder + "/shadow.crt)"), std::string::npos)
        << none.err;

    std::filesystem::create_directories(folder + "/shadow.crt");
    auto unreadable = test::runCommand({velmora, "certificate"});
    EXPECT_EQ(unreadable.exitCode, 1);
    EXPECT_NE(unreadable.err.find("shadow.crt cannot be read"), std::string::npos) << unreadable.err;
    std::filesystem::remove(folder + "/shadow.crt");

    test::writeFile(folder + "/shadow.crt", "-----BEGIN CERTIFICATE-----\nbm90IGEgY2VydA==\n-----END CERTIFICATE-----\n");
    auto garbage = test::runCommand({velmora, "certificate"});
    EXPECT_EQ(garbage.exitCode, 1);
    EXPECT_NE(garbage.err.find("holds no certificate that can be read"), std::string::npos) << garbage.err;

    const std::string cert = folder + "/shadow.crt";
    auto made = test::runCommand({"/usr/bin/openssl", "req", "-x509", "-newkey", "ec", "-pkeyopt",
                                  "ec_paramgen_curve:prime256v1", "-nodes", "-days", "30", "-subj",
                                  "/O=Velmora test/CN=desk-7", "-keyout", folder + "/shadow.key", "-out", cert});
    ASSERT_EQ(made.exitCode, 0) << made.err;
    auto shown = test::runCommand({velmora, "certificate"});
    ASSERT_EQ(shown.exitCode, 0) << shown.err;
    const std::string sha256 = opensslValue({"x509", "-in", cert, "-noout", "-fingerprint", "-sha256"});
    const std::string sha1 = opensslValue({"x509", "-in", cert, "-noout", "-fingerprint", "-sha1"});
    ASSERT_EQ(sha256.size(), 32u * 3 - 1);
    ASSERT_EQ(sha1.size(), 20u * 3 - 1);
    EXPECT_EQ(shown.out,
              "Certificate: " + cert + "\n"
              "Subject: desk-7\n"
              "Valid from: " + opensslValue({"x509", "-in", cert, "-noout", "-startdate", "-dateopt", "iso_8601"}) + "\n"
              "Valid until: " + opensslValue({"x509", "-in", cert, "-noout", "-enddate", "-dateopt", "iso_8601"}) + "\n"
              "SHA-256 fingerprint: " + sha256 + "\n"
              "SHA-1 fingerprint (thumbprint): " + sha1 + "\n");
}

// `login set` refuses what cannot work (a refusal leaves the stored login as it was) and says what
// it did.
TEST(CommandLine, LoginSetRefusesWhatCannotWorkAndSaysWhatItDid) {
    VELMORA_REQUIRE_KEYRING();
    test::TempHome home;
    auto login = [](std::vector<std::string> arguments, const std::string& input) {
        arguments.insert(arguments.begin(), {test::builtExecutable("bin/velmora"), "login"});
        return test::runCommand(arguments, {}, input);
    };
    ASSERT_EQ(login({"set", "anna"}, "secret\n").exitCode, 0);
    const std::vector<std::tuple<std::string, std::string, std::string>> refusals = {
        {" ", "secret\n", "the user name is empty; \"velmora login clear\" removes the Windows login"},
        {"anna", "first\nsecond\n", "the password on standard input has more than one line"},
        {"anna", std::string("pa\0ss\n", 6), "the password holds a NUL byte"},
        {"anna", "caf\xe9\n", "the password is not UTF-8 text"},
        {"b\xffo", "secret\n", "the user name is not UTF-8 text"},
    };
    for (const auto& [user, input, message] : refusals) {
        auto refused = login({"set", user}, input);
        EXPECT_EQ(refused.exitCode, 1) << message;
        EXPECT_NE(refused.err.find(message), std::string::npos) << refused.err;
    }
    EXPECT_EQ(login({"show"}, "").out, "anna\n");
    auto renamed = login({"set", "bob"}, "");
    EXPECT_EQ(renamed.exitCode, 0) << renamed.err;
    EXPECT_EQ(renamed.out, "No password given: kept the stored password, now under the name bob.\n"
                           "Takes effect when the server next starts.\n");
    login({"clear"}, "");
}
