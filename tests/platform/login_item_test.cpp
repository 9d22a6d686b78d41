// The login item on Linux: the autostart entry that a desktop session reads at login.

#include "platform/login_item.h"

#include "platform/paths.h"
#include "support/temp_home.h"

#include <gtest/gtest.h>

#include <filesystem>

using namespace velmora;
using namespace velmora::test;

TEST(LoginItem, WritesTheEntryForThisProgramHonoursHiddenAndReportsFailures) {
    test::TempHome home;
    const std::string path = home.configHome() + "/autostart/velmora.desktop";
    EXPECT_EQ(platform::loginItemPath(), path);
    EXPECT_FALSE(platform::opensAtLogin());

    EXPECT_EQ(platform::setOpensAtLogin(true), std::nullopt);
    EXPECT_TRUE(platform::opensAtLogin());
    std::string entry = readFile(path);
    EXPECT_EQ(entry.rfind("[Desktop Entry]\n", 0), 0u);
    EXPECT_NE(entry.find("\nExec=\"" + platform::executablePath() + "\"\n"), std::string::npos) << entry;

    // A session that turned the entry off keeps it, hidden.
    writeFile(path, entry + "Hidden=true\n");
    EXPECT_FALSE(platform::opensAtLogin());
    writeFile(path, "[Other]\nHidden=true\n[Desktop Entry]\nHidden = false\n");
    EXPECT_TRUE(platform::opensAtLogin());

    EXPECT_EQ(platform::setOpensAtLogin(false), std::nullopt);
    EXPECT_FALSE(std::filesystem::exists(path));
    EXPECT_EQ(platform::setOpensAtLogin(false), std::nullopt);  // already off

    // A file where the folder should be: the reason names the folder.
    std::filesystem::remove_all(home.configHome() + "/autostart");
    writeFile(home.configHome() + "/autostart", "");
    auto failure = platform::setOpensAtLogin(true);
    ASSERT_TRUE(failure.has_value());
    EXPECT_NE(failure->find(home.configHome() + "/autostart"), std::string::npos) << *failure;
    EXPECT_FALSE(platform::opensAtLogin());
}
