#include "platform/defaults_store.h"
#include "platform/login_item.h"
#include "platform/paths.h"
#include "support/temp_home.h"

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include <filesystem>
#include <thread>
#include <unistd.h>
#include <sys/stat.h>

using velmora::platform::DefaultsStore;
namespace test = velmora::test;

namespace {

std::vector<std::string> keptAside(const std::string& folder) {
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(folder)) {
        std::string name = entry.path().filename().string();
        if (name.find(".corrupt-") != std::string::npos) names.push_back(entry.path().string());
    }
    return names;
}

}  // namespace

TEST(DefaultsStore, KeepsTypedValuesInOneJsonFileUnderTheConfigFolder) {
    test::TempHome home;
    DefaultsStore store;
    EXPECT_EQ(store.location(), home.configHome() + "/velmora/defaults.json");
    EXPECT_EQ(store.integer("port"), 0);

    ASSERT_TRUE(store.set("port", std::int64_t{3390}));
    ASSERT_TRUE(store.set("scale", 1.0));
    ASSERT_TRUE(store.set("audio", false));
    ASSERT_TRUE(store.set("remoteScreen", std::string("extend")));
    auto json = nlohmann::json::parse(test::readFile(store.location()));
    EXPECT_EQ(json.dump(), R"({"audio":false,"port":3390,"remoteScreen":"extend","scale":1.0})") << "1.0 stays a double";

    DefaultsStore again;
    EXPECT_EQ(again.integer("port"), 3390);
    EXPECT_DOUBLE_EQ(again.real("scale"), 1.0);
    EXPECT_EQ(again.string("remoteScreen"), "extend");
    ASSERT_TRUE(again.remove("port"));
    EXPECT_FALSE(store.object("port"));
    struct stat info{};
    ASSERT_EQ(::stat(store.location().c_str(), &info), 0);
    EXPECT_EQ(info.st_mode & 0777, 0600u);
}

TEST(DefaultsStore, ReadingsConvertBetweenTypesLikeTheCocoaDefaults) {
    test::TempHome home;
    DefaultsStore store;
    store.set("n", 3.9);
    EXPECT_EQ(store.integer("n"), 3);
    EXPECT_TRUE(store.boolean("n"));
    store.set("n", std::string("12abc"));
    EXPECT_EQ(store.integer("n"), 12);
    store.set("n", std::string(" 1.5e1x"));
    EXPECT_EQ(store.integer("n"), 15);
    store.set("n", std::string("YES"));
    EXPECT_TRUE(store.boolean("n"));
    store.set("n", true);
    EXPECT_EQ(store.integer("n"), 1);
    EXPECT_EQ(store.string("n"), std::nullopt) << "only text reads as text";
}

TEST(DefaultsStore, ACorruptFileReadsAsEmptyUntouchedAndIsKeptAsideByTheNextWrite) {
    test::TempHome home;
    DefaultsStore store;
    const std::string corrupt = "{\"port\": 3390, \"audio\": tru";
    test::writeFile(store.location(), corrupt);
    // Reads leave a half-saved file where it is: the editor's next save completes it.
    EXPECT_FALSE(store.object("port"));
    EXPECT_EQ(test::readFile(store.location()), corrupt);
    EXPECT_TRUE(keptAside(home.configHome() + "/velmora").empty());

    ASSERT_TRUE(store.set("fps", std::int64_t{60}));
    auto aside = keptAside(home.configHome() + "/velmora");
    ASSERT_EQ(aside.size(), 1u);
    EXPECT_EQ(test::readFile(aside[0]), corrupt);
    EXPECT_EQ(store.integer("fps"), 60);

    // A second corruption gets its own name; the first copy stays.
    test::writeFile(store.location(), "[1, 2, 3]");
    ASSERT_TRUE(store.set("fps", std::int64_t{24}));
    EXPECT_EQ(keptAside(home.configHome() + "/velmora").size(), 2u);
    EXPECT_EQ(store.integer("fps"), 24);
}

TEST(DefaultsStore, ValuesOfOtherKindsAreIgnoredOnReadAndPreservedOnWrite) {
    test::TempHome home;
    DefaultsStore store;
    test::writeFile(store.location(), R"({"list": [1, 2], "nothing": null, "port": 3391})");
    EXPECT_FALSE(store.object("list"));
    EXPECT_FALSE(store.object("nothing"));
    ASSERT_TRUE(store.set("fps", std::int64_t{15}));
    auto json = nlohmann::json::parse(test::readFile(store.location()));
    EXPECT_EQ(json["list"], nlohmann::json::array({1, 2}));
    EXPECT_EQ(json["port"], 3391);
}

TEST(DefaultsStore, AWriteThatCannotBeSavedFailsAndChangesNothing) {
    test::TempHome home;
    test::writeFile(home.configHome() + "/velmora", "not a folder");  // a file where the folder goes
    DefaultsStore store;
    EXPECT_FALSE(store.set("fps", std::int64_t{15}));
    EXPECT_EQ(test::readFile(home.configHome() + "/velmora"), "not a folder");
}

TEST(DefaultsStore, ConcurrentWritersToTheSameFileLoseNoKey) {
    test::TempHome home;
    auto writer = [](int first) {
        DefaultsStore store;
        for (int i = first; i < first + 40; ++i) store.set("key" + std::to_string(i), std::int64_t{i});
    };
    std::thread a(writer, 0), b(writer, 40);
    a.join();
    b.join();
    DefaultsStore store;
    for (int i = 0; i < 80; ++i) EXPECT_EQ(store.integer("key" + std::to_string(i)), i) << i;
}

// The login item on Linux: the autostart entry that a desktop session reads at login.
TEST(LoginItem, WritesTheEntryForThisProgramHonoursHiddenAndReportsFailures) {
    test::TempHome home;
    const std::string path = home.configHome() + "/autostart/velmora.desktop";
    EXPECT_EQ(velmora::platform::loginItemPath(), path);
    EXPECT_FALSE(velmora::platform::opensAtLogin());

    EXPECT_EQ(velmora::platform::setOpensAtLogin(true), std::nullopt);
    EXPECT_TRUE(velmora::platform::opensAtLogin());
    std::string entry = test::readFile(path);
    EXPECT_EQ(entry.rfind("[Desktop Entry]\n", 0), 0u);
    EXPECT_NE(entry.find("\nExec=\"" + velmora::platform::executablePath() + "\"\n"), std::string::npos) << entry;

    // A session that turned the entry off keeps it, hidden.
    test::writeFile(path, entry + "Hidden=true\n");
    EXPECT_FALSE(velmora::platform::opensAtLogin());
    test::writeFile(path, "[Other]\nHidden=true\n[Desktop Entry]\nHidden = false\n");
    EXPECT_TRUE(velmora::platform::opensAtLogin());

    EXPECT_EQ(velmora::platform::setOpensAtLogin(false), std::nullopt);
    EXPECT_FALSE(std::filesystem::exists(path));
    EXPECT_EQ(velmora::platform::setOpensAtLogin(false), std::nullopt);  // already off

    // A file where the folder should be: the reason names the folder.
    std::filesystem::remove_all(home.configHome() + "/autostart");
    test::writeFile(home.configHome() + "/autostart", "");
    auto failure = velmora::platform::setOpensAtLogin(true);
    ASSERT_TRUE(failure.has_value());
    EXPECT_NE(failure->find(home.configHome() + "/autostart"), std::string::npos) << *failure;
    EXPECT_FALSE(velmora::platform::opensAtLogin());
}
