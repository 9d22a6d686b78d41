#include "platform/app_log.h"
#include "platform/defaults_store.h"
#include "platform/login_item.h"
#include "platform/paths.h"
#include "support/log_lines.h"
#include "support/temp_home.h"

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include <algorithm>
#include <fcntl.h>
#include <filesystem>
#include <functional>
#include <thread>
#include <unistd.h>
#include <sys/stat.h>

using velmora::platform::DefaultsStore;
namespace test = velmora::test;

// Values of kinds the store does not read (lists, null) are ignored on reading and kept on writing.
TEST(DefaultsStore, KeepsTypedValuesInOneJsonFileUnderTheConfigFolderAndConvertsThemOnReading) {
    test::TempHome home;
    DefaultsStore store;
    EXPECT_EQ(store.location(), home.configHome() + "/velmora/defaults.json");
    EXPECT_EQ(store.integer("port"), 0);
    test::writeFile(store.location(), R"({"list": [1, 2], "nothing": null})");
    EXPECT_FALSE(store.object("list") || store.object("nothing"));

    ASSERT_TRUE(store.set("port", std::int64_t{3390}));
    ASSERT_TRUE(store.set("scale", 1.0));
    ASSERT_TRUE(store.set("audio", false));
    ASSERT_TRUE(store.set("remoteScreen", std::string("extend")));
    EXPECT_EQ(nlohmann::json::parse(test::readFile(store.location())).dump(),
              R"({"audio":false,"list":[1,2],"nothing":null,"port":3390,"remoteScreen":"extend","scale":1.0})")
        << "1.0 stays a double";

    ASSERT_TRUE(DefaultsStore().remove("port"));
    EXPECT_FALSE(store.object("port"));
    struct stat info{};
    ASSERT_EQ(::stat(store.location().c_str(), &info), 0);
    EXPECT_EQ(info.st_mode & 0777, 0600u);

    // Readings convert between types like the Cocoa defaults.
    store.set("n", 3.9);
    EXPECT_EQ(store.integer("n"), 3);
    EXPECT_TRUE(store.boolean("n"));
    store.set("n", std::string(" 1.5e1x"));
    EXPECT_EQ(store.integer("n"), 15);
    store.set("n", std::string("YES"));
    EXPECT_TRUE(store.boolean("n"));
    store.set("n", true);
    EXPECT_EQ(store.integer("n"), 1);
    EXPECT_EQ(store.string("n"), std::nullopt) << "only text reads as text";

    // A file where the folder goes: the write fails and changes nothing.
    std::filesystem::remove_all(home.configHome() + "/velmora");
    test::writeFile(home.configHome() + "/velmora", "not a folder");
    EXPECT_FALSE(store.set("fps", std::int64_t{15}));
    EXPECT_EQ(test::readFile(home.configHome() + "/velmora"), "not a folder");
}

// A file that cannot be read never makes Velmora guess: it keeps the values read before, its own
// log says so once, and only a real change keeps the file aside and writes, through a link too.
TEST(DefaultsStore, AnUnreadableFileKeepsTheLastValuesReadAndOnlyChangesAreWritten) {
    test::TempHome home;
    std::filesystem::create_directories(home.stateHome() + "/velmora");
    const std::string folder = home.configHome() + "/velmora";
    DefaultsStore store;
    store.registerDefaults({{"port", std::int64_t{3389}}, {"usagePing", true}});
    const std::string halfWritten = "{\"port\": 34003, \"usagePing\": fal";
    const std::string good = R"({"port": 34003, "usagePing": false})";
    test::writeFile(store.location(), halfWritten);
    EXPECT_FALSE(store.storedValuesKnown()) << "nothing read yet: the defaults are a guess";
    test::writeFile(store.location(), good);
    ASSERT_EQ(store.integer("port"), 34003);

    const std::vector<std::function<void()>> breakings = {
        [&] { test::writeFile(store.location(), halfWritten); },
        [&] { test::writeFile(store.location(), "[1, 2, 3]"); },
        [&] { test::writeFile(store.location(), ""); },
        [&] { test::writeFile(store.location(), R"({"port": 1, "pad": ")" + std::string(1 << 20, 'x') + "\"}"); },
        [&] { std::filesystem::remove(store.location()); std::filesystem::create_directory(store.location()); },
    };
    for (std::size_t i = 0; i < breakings.size(); ++i) {
        breakings[i]();
        EXPECT_EQ(store.integer("port"), 34003) << i;  // not the registered 3389
        EXPECT_TRUE(store.storedValuesKnown()) << i;
        std::filesystem::remove_all(store.location());
        test::writeFile(store.location(), good);
        EXPECT_EQ(store.integer("port"), 34003) << i;
    }
    const auto log = test::logMessages();
    auto notices = std::count_if(log.begin(), log.end(), [&](const std::string& m) {
        return m.rfind("the settings file " + store.location() + " cannot be read (", 0) == 0;
    });
    EXPECT_EQ(notices, 1 + static_cast<long>(breakings.size())) << "once per problem";

    // Reads leave a half-saved file where it is; a change keeps it aside, then writes.
    test::writeFile(store.location(), halfWritten);
    ASSERT_TRUE(store.set("port", std::int64_t{34003}));
    EXPECT_EQ(test::readFile(store.location()), halfWritten) << "the same value: nothing written";
    ASSERT_TRUE(store.set("fps", std::int64_t{24}));
    std::vector<std::string> aside;
    for (const auto& entry : std::filesystem::directory_iterator(folder))
        if (entry.path().filename().string().find(".corrupt-") != std::string::npos) aside.push_back(entry.path());
    ASSERT_EQ(aside.size(), 1u);
    EXPECT_EQ(test::readFile(aside[0]), halfWritten);
    EXPECT_EQ(nlohmann::json::parse(test::readFile(store.location())),
              nlohmann::json::parse(R"({"port": 34003, "usagePing": false, "fps": 24})"));

    // Through a symbolic link: the link stays, the file it names is replaced.
    std::filesystem::create_directories(home.path() + "/dotfiles");
    std::filesystem::rename(store.location(), home.path() + "/dotfiles/velmora.json");
    std::filesystem::create_symlink("../../dotfiles/velmora.json", store.location());
    ASSERT_TRUE(store.set("fps", std::int64_t{30}));
    EXPECT_TRUE(std::filesystem::is_symlink(store.location()));
    EXPECT_EQ(nlohmann::json::parse(test::readFile(home.path() + "/dotfiles/velmora.json"))["fps"], 30);
}

// A FIFO in place of the log would hang the writer (no reader) or swallow the lines.
TEST(AppLog, WritesOnlyIntoARegularFileAndNeverWaits) {
    test::TempHome home;
    const std::string log = velmora::platform::AppLog::path();
    std::filesystem::create_directories(home.stateHome() + "/velmora");
    ASSERT_EQ(::mkfifo(log.c_str(), 0600), 0);
    int reader = ::open(log.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    velmora::platform::AppLog::write("into a FIFO");
    char byte = 0;
    EXPECT_LE(::read(reader, &byte, 1), 0) << "nothing written into the FIFO";
    ::close(reader);
    velmora::platform::AppLog::write("with no reader");
    EXPECT_EQ(velmora::platform::AppLog::openForAppend(log), -1);
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

// The login item on Linux: the autostart entry that a desktop session reads at login. (Off for a
// fresh user and on once set: the tray test clicks it.)
TEST(LoginItem, WritesTheEntryForThisProgramHonoursHiddenAndReportsFailures) {
    test::TempHome home;
    const std::string path = home.configHome() + "/autostart/velmora.desktop";
    EXPECT_EQ(velmora::platform::setOpensAtLogin(true), std::nullopt);
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
}
