#include "app/app_delegate.h"

#include "app/console_view.h"
#include "core/manual_queue.h"
#include "nla/login_form.h"
#include "nla/nla_login.h"
#include "platform/paths.h"
#include "support/e2e_harness.h"
#include "support/keyring.h"
#include "support/log_lines.h"
#include "support/temp_home.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <tuple>

using namespace velmora;

namespace {

using V = platform::DefaultsValue;

// The application object with a script playing the server (it answers the permission probe with
// both permissions and otherwise sleeps), the form it owns with the macOS column, a private home,
// and --headless's screen, whose lines (alerts included) go to a file.
class SettingsFormTest : public ::testing::Test {
protected:
    void SetUp() override {
        // Every save goes through the Windows login first, which may delete the keyring's item.
        VELMORA_REQUIRE_KEYRING();
        platform::makeDirectories(platform::logDirectory());
        test::writeScript(home.path() + "/prefix/libexec/velmora/velmora-server",
                          "if [ -n \"$MAC_SHADOW_PERMS\" ]; then echo screen=1 input=1; exit 0; fi\nexec sleep 1000\n");
        app = AppDelegate::create({.mainQueue = queue, .view = screen, .desktop = screen,
                                   .bundleRoot = home.path() + "/prefix", .stopLeftovers = [] { return 0; },
                                   .stopGrace = 0.5, .column = platform::Column::mac});
    }
    void TearDown() override {
        if (app) {
            app->supervisor()->stopServer();
            app->helperPerms()->drainQueue();
        }
        std::fclose(out);
    }

    SettingsForm& form() { return app->settingsForm(); }
    std::string defaultsFile() const { return home.configHome() + "/velmora/defaults.json"; }
    void storeDefaults(const std::string& json) { test::writeFile(defaultsFile(), json); }
    static std::optional<V> stored(const char* key) { return platform::DefaultsStore().storedObject(key); }
    bool save(SettingsFields& fields) { return form().save(fields, [] {}); }
    std::string said() {
        std::fflush(out);
        return test::readFile(home.path() + "/screen");
    }

    test::TempHome home;
    ManualQueue queue;
    std::FILE* out = std::fopen((home.path() + "/screen").c_str(), "w");
    ConsoleView screen{[] {}, out};
    std::shared_ptr<AppDelegate> app;
};

}  // namespace

TEST_F(SettingsFormTest, FillingFollowsTheChoiceThresholdsAndSavingStoresOnlyTheListsValues) {
    const std::string rest = R"(, "maxWidth": 6000, "fps": 25, "bitrateMbps": 20, "scale": 0.879, "port": 3390,)"
                             R"( "remoteScreen": "Extend", "virtualDisplays": "always", "audio": false})";
    for (auto [maxPixels, shown, saved] : {std::tuple{2999999, 0, 2073600}, std::tuple{3000000, 1, 3686400},
                                           std::tuple{5999999, 1, 3686400}, std::tuple{6000000, 2, 8294400}}) {
        storeDefaults(R"({"maxPixels": )" + std::to_string(maxPixels) + rest);
        SettingsFields fields = form().fill();
        EXPECT_EQ(fields.get<int>("maxPixels"), shown) << maxPixels;
        ASSERT_TRUE(save(fields));
        EXPECT_EQ(stored("maxPixels"), V(std::int64_t{saved}));
    }

    storeDefaults(R"({"maxPixels": 1)" + rest);
    SettingsFields fields = form().fill();
    EXPECT_EQ(fields.get<int>("maxWidth"), 0);  // 6000 is no item: "Automatic"
    EXPECT_EQ(fields.get<int>("fps"), -1);      // 25 matches no item
    EXPECT_EQ(fields.get<int>("bitrateMbps"), 2);
    EXPECT_EQ(SettingsForm::scaleText(fields.get<double>("scale")), "87%");
    EXPECT_EQ(fields.get<int>("remoteScreen"), 1);  // the legacy key decides over an unknown value
    EXPECT_FALSE(fields.get<bool>("audio"));
    EXPECT_TRUE(fields.get<bool>("clipboard"));  // registered defaults show too
    ASSERT_TRUE(save(fields));
    const std::pair<const char*, V> saved[] = {{"maxWidth", V(std::int64_t{0})}, {"fps", V(std::int64_t{30})},
                                               {"bitrateMbps", V(std::int64_t{20})}, {"scale", V(0.879)},
                                               {"remoteScreen", V(std::string("extend"))}, {"clipboard", V(true)},
                                               {"audio", V(false)}};
    for (const auto& [key, value] : saved) EXPECT_EQ(stored(key), value) << key;

    // The slider's percent becomes a fraction, never below a quarter.
    for (auto [slider, scale] : {std::pair{100.0, 1.0}, std::pair{20.0, 0.25}}) {
        fields.controls["scale"] = slider;
        ASSERT_TRUE(save(fields));
        EXPECT_EQ(stored("scale"), V(scale)) << slider;
    }
    // Unchanged port: no log line; nothing was running, so nothing started.
    for (const auto& line : test::logMessages()) EXPECT_EQ(line.find("port changed"), std::string::npos) << line;
    EXPECT_FALSE(app->supervisor()->running() || app->supervisor()->starting());
}

TEST_F(SettingsFormTest, TheLoginIsSavedFirstBadPortsStopTheSaveAndANewPortRestartsTheServer) {
    NLALogin::clear();
    storeDefaults(R"({"audio": false})");
    const std::string before = test::readFile(defaultsFile());

    SettingsFields fields = form().fill();
    EXPECT_EQ(fields.nlaStatus, "Not set: Windows clients get TLS only and must send a Mac account password.");

    // A name without a password and no stored login.
    fields.nlaUser = "anna";
    fields.controls["audio"] = true;
    EXPECT_FALSE(save(fields));
    EXPECT_NE(said().find("velmora: Windows login: " + std::string(LoginForm::passwordNeeded) + "\n"), std::string::npos);

    // The login is saved even though the port is refused; nothing else is stored. (The port's range
    // is the settings store's test, the alert's text the settings window's.)
    fields.nlaPass = "s3cret";
    fields.controls["port"] = std::string("65536");
    EXPECT_FALSE(save(fields));
    EXPECT_EQ(fields.nlaPass, "");
    EXPECT_NE(said().find("velmora: Port: \"65536\""), std::string::npos) << said();
    EXPECT_EQ(NLALogin::load(), "anna:" + NLALogin::ntHashHex("s3cret"));
    EXPECT_EQ(test::readFile(defaultsFile()), before);

    // A stored login shows as such; a name of spaces removes it (renames are LoginForm's, tested with
    // the keyring). The running server is restarted on the new port once the window is hidden.
    app->supervisor()->startServer();
    ASSERT_TRUE(queue.runUntil([&] { return app->supervisor()->running(); }, 30));
    const pid_t first = app->supervisor()->task()->pid();
    fields = form().fill();
    EXPECT_EQ(fields.nlaUser, "anna");
    EXPECT_EQ(fields.nlaPassPlaceholder, "unchanged");
    EXPECT_EQ(fields.nlaStatus, "Set. Clear the user name to remove it; type a password to change it.");
    fields.nlaUser = "   ";
    fields.controls["port"] = std::string("3390");
    ASSERT_TRUE(form().save(fields, [&] { EXPECT_TRUE(app->supervisor()->running()) << "hidden before the restart"; }));
    EXPECT_FALSE(NLALogin::load());
    EXPECT_EQ(form().fill().nlaPassPlaceholder, "password");
    EXPECT_FALSE(test::processAlive(first));
    ASSERT_TRUE(queue.runUntil([&] { return app->supervisor()->running(); }, 30));
    EXPECT_EQ(test::logMessages().back().rfind("starting Velmora Server: /port:3390 ", 0), 0u);
}
