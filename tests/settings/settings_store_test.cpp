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
using V = platform::DefaultsValue;

namespace {

class Settings : public ::testing::Test {
protected:
    test::TempHome home;
    DefaultsStore store;  // reads the location from the temporary home
    void SetUp() override {
        platform::makeDirectories(platform::logDirectory());
        registerDefaultsAndMigrate(store);
    }
    ServerSettings read() {
        return currentSettings(store, [] { return std::optional<std::string>(); });
    }
};

}  // namespace

TEST_F(Settings, AFreshUserGetsTheDocumentedDefaultsAndNothingIsWritten) {
    // The registered defaults are the settings' own (which the plan tests spell out).
    ServerSettings expected;
    expected.statsFile = home.dataHome() + "/velmora/server-stats.json";
    EXPECT_EQ(read(), expected);
    EXPECT_TRUE(std::filesystem::is_directory(home.dataHome() + "/velmora")) << "asking for the path makes its folder";
    EXPECT_TRUE(store.boolean(Key::usagePing));  // autoStart's default shows in the application's start-up test
    EXPECT_FALSE(test::fileExists(store.location())) << "registered defaults are never written";
}

TEST_F(Settings, StoredValuesOutsideTheirRangeOrOfAnotherKindFallBack) {
    for (auto [stored, expected] : {std::pair{1023, 3389}, {1024, 1024}, {65535, 65535}, {65536, 3389}}) {
        store.set(Key::port, std::int64_t{stored});
        EXPECT_EQ(read().port, expected) << stored;
    }
    store.set(Key::port, std::string("not a number"));
    EXPECT_EQ(read().port, 3389);
    store.set(Key::h264Profile, std::int64_t{5});
    EXPECT_EQ(read().h264Profile, "baseline") << "a non-text value under a text key reads as missing";

    // The remote screen falls back to the legacy key only without a valid value of its own.
    const std::tuple<V, const char*, RemoteScreen> screens[] = {
        {V(std::string("Extend")), "always", RemoteScreen::extend}, {V(std::string("Extend")), "never", RemoteScreen::real},
        {V(std::string("Extend")), "sometimes", RemoteScreen::mirror}, {V(std::string("extend")), "never", RemoteScreen::extend},
        {V(std::int64_t{1}), "never", RemoteScreen::real}};
    for (const auto& [remoteScreen, virtualMode, expected] : screens) {
        store.set(Key::remoteScreen, remoteScreen);
        store.set(Key::virtualMode, std::string(virtualMode));
        EXPECT_EQ(read().remoteScreen, expected) << virtualMode;
    }
    EXPECT_TRUE(store.storedObject(Key::virtualMode)) << "the legacy key is only read";
}

TEST_F(Settings, AMistypedLoginRequirementKeepsTheLoginRequiredAndSaysSoAndTheLoginIsAlwaysLoaded) {
    for (const V& stored : {V(std::string("on")), V(std::string("required")), V(std::int64_t{0}), V(0.0)}) {
        store.set(Key::auth, stored);
        EXPECT_TRUE(read().requireLogin);
    }
    EXPECT_EQ(test::logMessages().front(),
              "the setting \"requireLogin\" holds \"on\" instead of true or false: using its safe default, true");
    EXPECT_EQ(test::logMessages().size(), 4u);

    store.set(Key::auth, false);
    const std::string login = "anna:31d6cfe0d16ae931b73c59d7e0c089c0";
    ServerSettings s = currentSettings(store, [&] { return std::optional(login); });
    EXPECT_FALSE(s.requireLogin);  // a real false turns the login off
    EXPECT_EQ(s.nlaLogin, login) << "loaded whatever requireLogin says";
}

TEST_F(Settings, TheLegacySecurityKeyIsRemovedAndOnlyRdpIsLogged) {
    store.set(Key::sec, std::string("tls"));
    registerDefaultsAndMigrate(store);
    EXPECT_FALSE(store.storedObject(Key::sec));  // and nothing logged: see the single line below

    store.set(Key::sec, std::string("rdp"));
    registerDefaultsAndMigrate(store);
    registerDefaultsAndMigrate(store);  // removed the first time: no second line
    EXPECT_EQ(test::logMessages(),
              std::vector<std::string>{"the RDP (legacy) security setting was removed: using TLS"});
}
