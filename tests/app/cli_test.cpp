#include "support/run_command.h"
#include "support/temp_home.h"

#include <gtest/gtest.h>

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
