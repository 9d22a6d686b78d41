#include "platform/app_log.h"
#include "platform/defaults_store.h"
#include "platform/paths.h"
#include "settings/keys.h"
#include "settings/settings_store.h"
#include "support/log_lines.h"
#include "support/temp_home.h"

#include <gtest/gtest.h>

#include <filesystem>

using namespace velmora;
using platform::DefaultsStore;

namespace {

std::optional<std::string> noLogin() { return std::nullopt; }

class Settings : public ::testing::Test {
protected:
    test::TempHome home;
    DefaultsStore store;  // reads the location from the temporary home
    void SetUp() override { registerDefaultsAndMigrate(store); }
    ServerSettings read() { return currentSettings(store, noLogin); }
};

}  // namespace

TEST_F(Settings, AFreshUserGetsTheDocumentedDefaultsAndNothingIsWritten) {
    // The registered defaults are the settings' own (which the plan tests spell out).
    ServerSettings expected;
    expected.statsFile = home.dataHome() + "/velmora/server-stats.json";
    EXPECT_EQ(read(), expected);
    EXPECT_TRUE(std::filesystem::is_directory(home.dataHome() + "/velmora")) << "asking for the path makes its folder";
    EXPECT_TRUE(store.boolean(Key::autoStart));
    EXPECT_TRUE(store.boolean(Key::usagePing));
    EXPECT_FALSE(test::fileExists(store.location())) << "registered defaults are never written";
}

TEST_F(Settings, PortsOutsideTheUserRangeReadAsTheRdpPort) {
    for (auto [stored, expected] : {std::pair{1023, 3389}, {1024, 1024}, {65535, 65535}, {65536, 3389}, {0, 3389}}) {
        store.set(Key::port, std::int64_t{stored});
        EXPECT_EQ(read().port, expected) << stored;
    }
    store.set(Key::port, std::string("not a number"));
    EXPECT_EQ(read().port, 3389);
}

TEST_F(Settings, AMistypedLoginRequirementKeepsTheLoginRequiredAndSaysSo) {
    platform::makeDirectories(platform::logDirectory());
    using V = platform::DefaultsValue;
    for (const V& stored : {V(std::string("on")), V(std::string("On")), V(std::string("required")), V(std::int64_t{0}),
                            V(0.0)}) {
        store.set(Key::auth, stored);
        EXPECT_TRUE(read().requireLogin);
    }
    EXPECT_EQ(test::logMessages().front(),
              "the setting \"requireLogin\" holds \"on\" instead of true or false: using its safe default, true");
    EXPECT_EQ(test::logMessages().size(), 5u);
    store.set(Key::auth, false);
    EXPECT_FALSE(read().requireLogin);  // a real false turns the login off
}

TEST_F(Settings, RemoteScreenFallsBackToTheLegacyKeyOnlyWithoutAValidValue) {
    store.set(Key::remoteScreen, std::string("Extend"));
    store.set(Key::virtualMode, std::string("always"));
    EXPECT_EQ(read().remoteScreen, RemoteScreen::extend);
    store.set(Key::virtualMode, std::string("never"));
    EXPECT_EQ(read().remoteScreen, RemoteScreen::real);
    store.set(Key::virtualMode, std::string("sometimes"));
    EXPECT_EQ(read().remoteScreen, RemoteScreen::mirror);
    store.set(Key::remoteScreen, std::string("extend"));
    store.set(Key::virtualMode, std::string("never"));
    EXPECT_EQ(read().remoteScreen, RemoteScreen::extend) << "a valid value wins over the legacy key";
    store.set(Key::remoteScreen, std::int64_t{1});
    EXPECT_EQ(read().remoteScreen, RemoteScreen::real) << "a number is not a text, so the legacy key decides";
    EXPECT_TRUE(store.storedObject(Key::virtualMode)) << "the legacy key is only read";
}

TEST_F(Settings, AStoredZeroAlignmentIsKeptUnlikeAMissingOne) {
    store.set(Key::sizeAlign, std::int64_t{0});
    EXPECT_EQ(read().sizeAlign, 0);
    store.remove(Key::sizeAlign);
    EXPECT_EQ(read().sizeAlign, 2);
    store.set(Key::h264Profile, std::int64_t{5});
    EXPECT_EQ(read().h264Profile, "baseline") << "a non-text value under a text key reads as missing";
    store.set(Key::h264Profile, std::string("High"));
    EXPECT_EQ(read().h264Profile, "High") << "checked later, by the launch plan";
}

TEST_F(Settings, ValuesAreReadAfreshEveryTimeAndTheLoginIsAlwaysLoaded) {
    store.set(Key::fps, std::int64_t{60});
    store.set(Key::scale, 1.0);
    store.set(Key::auth, false);
    int loads = 0;
    ServerSettings s = currentSettings(store, [&] {
        ++loads;
        return std::optional<std::string>("anna:31d6cfe0d16ae931b73c59d7e0c089c0");
    });
    EXPECT_EQ(s.fps, 60);
    EXPECT_DOUBLE_EQ(s.scale, 1.0);
    EXPECT_FALSE(s.requireLogin);
    EXPECT_EQ(loads, 1);
    EXPECT_EQ(s.nlaLogin, "anna:31d6cfe0d16ae931b73c59d7e0c089c0") << "loaded whatever requireLogin says";
    // Another writer (a second store on the same file) is seen at once.
    DefaultsStore other;
    other.set(Key::fps, std::int64_t{15});
    EXPECT_EQ(read().fps, 15);
}

TEST(SettingsMigration, TheLegacySecurityKeyIsRemovedAndOnlyRdpIsLogged) {
    test::TempHome home;
    platform::makeDirectories(platform::logDirectory());
    DefaultsStore store;
    store.set(Key::sec, std::string("tls"));
    registerDefaultsAndMigrate(store);
    EXPECT_FALSE(store.storedObject(Key::sec));
    EXPECT_FALSE(test::fileExists(platform::AppLog::path()));

    store.set(Key::sec, std::string("rdp"));
    registerDefaultsAndMigrate(store);
    EXPECT_FALSE(store.storedObject(Key::sec));
    std::string log = test::readFile(platform::AppLog::path());
    EXPECT_NE(log.find("] [Velmora app] the RDP (legacy) security setting was removed: using TLS\n"),
              std::string::npos)
        << log;

    registerDefaultsAndMigrate(store);  // nothing stored: nothing happens
    EXPECT_EQ(test::readFile(platform::AppLog::path()), log);
}
