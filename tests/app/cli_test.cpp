#include "support/keyring.h"
#include "support/run_command.h"
#include "support/temp_home.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <tuple>

using namespace velmora;

// How the listing treats other variables is the plan listing's test; here the stored settings reach
// it, and a login left in Velmora's own environment is taken out and never shown.
TEST(CommandLine, PlanPrintsArgumentsThenTheChangedEnvironmentForTheStoredSettings) {
    test::TempHome home;
    test::writeFile(home.configHome() + "/velmora/defaults.json",
                    R"({"port": 3390, "requireLogin": false, "cursorInVideo": true})");
    auto result = test::runCommand({test::builtExecutable("bin/velmora"), "plan"},
                                   {{"MAC_SHADOW_NLA", "leaked:8846f7eaee8fb117ad06bdd830b7586c"},
                                    {"DBUS_SESSION_BUS_ADDRESS", "unix:path=" + home.path() + "/no-bus"}});
    ASSERT_EQ(result.exitCode, 0) << result.err;
    EXPECT_EQ(result.out.substr(0, result.out.find("\n\n") + 2),
              "/port:3390\n-auth\n/sec:tls\n-gfx-avc444\n/max-connections:5\n\n");
    EXPECT_NE(result.out.find("\nMAC_SHADOW_CURSOR=1\n"), std::string::npos);
    EXPECT_NE(result.out.find("\n-MAC_SHADOW_NLA\n"), std::string::npos);
    EXPECT_EQ(result.out.find("8846f7"), std::string::npos);
}

TEST(CommandLine, UnknownCommandsPrintUsageAndFail) {
    auto result = test::runCommand({test::builtExecutable("bin/velmora"), "frobnicate"});
    EXPECT_EQ(result.exitCode, 2);
    EXPECT_NE(result.err.find("usage: velmora"), std::string::npos);
    EXPECT_EQ(test::runCommand({test::builtExecutable("bin/velmora"), "login", "set"}).exitCode, 2);
}

TEST(CommandLine, CertificateShowsWhatOpensslShowsOrSaysThereIsNoneYet) {
    test::TempHome home;
    const std::string velmora = test::builtExecutable("bin/velmora");
    const std::string folder = home.configHome() + "/freerdp/shadow", cert = folder + "/shadow.crt";
    auto refused = [&](const std::string& message) {
        auto result = test::runCommand({velmora, "certificate"});
        EXPECT_EQ(result.exitCode, 1);
        EXPECT_NE(result.err.find(message), std::string::npos) << result.err;
    };
    refused("has not made its certificate yet (" + cert + ")");
    std::filesystem::create_directories(cert);
    refused("shadow.crt cannot be read");
    std::filesystem::remove(cert);
    test::writeFile(cert, "-----BEGIN CERTIFICATE-----\nbm90IGEgY2VydA==\n-----END CERTIFICATE-----\n");
    refused("holds no certificate that can be read");

    auto made = test::runCommand({"/usr/bin/openssl", "req", "-x509", "-newkey", "ec", "-pkeyopt",
                                  "ec_paramgen_curve:prime256v1", "-nodes", "-days", "30", "-subj",
                                  "/O=Velmora test/CN=desk-7", "-keyout", folder + "/shadow.key", "-out", cert});
    ASSERT_EQ(made.exitCode, 0) << made.err;
    // The value after '=' of openssl's one-line answer ("sha256 Fingerprint=AB:…", "notAfter=…").
    auto x509 = [&](std::vector<std::string> options) {
        options.insert(options.begin(), {"/usr/bin/openssl", "x509", "-in", cert, "-noout"});
        std::string line = test::runCommand(options).out;
        line = line.substr(0, line.find('\n'));
        return line.substr(line.find('=') + 1);
    };
    auto shown = test::runCommand({velmora, "certificate"});
    ASSERT_EQ(shown.exitCode, 0) << shown.err;
    EXPECT_EQ(shown.out, "Certificate: " + cert + "\nSubject: desk-7\n"
                         "Valid from: " + x509({"-startdate", "-dateopt", "iso_8601"}) + "\n"
                         "Valid until: " + x509({"-enddate", "-dateopt", "iso_8601"}) + "\n"
                         "SHA-256 fingerprint: " + x509({"-fingerprint", "-sha256"}) + "\n"
                         "SHA-1 fingerprint (thumbprint): " + x509({"-fingerprint", "-sha1"}) + "\n");
}

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
    EXPECT_EQ(login({"show"}, "").out, "anna\n");  // the refusals left it as it was
    auto renamed = login({"set", "bob"}, "");
    EXPECT_EQ(renamed.exitCode, 0) << renamed.err;
    EXPECT_EQ(renamed.out, "No password given: kept the stored password, now under the name bob.\n"
                           "Takes effect when the server next starts.\n");
    login({"clear"}, "");
}
