// The Windows login against the real keyring (a private gnome-keyring started by the test command).

#include "nla/login_form.h"
#include "nla/nla_login.h"
#include "platform/credential_store.h"
#include "support/keyring.h"
#include "support/run_command.h"
#include "support/temp_home.h"

#include <gtest/gtest.h>

#include <sstream>

namespace NLALogin = velmora::NLALogin;
namespace platform = velmora::platform;
using velmora::test::runCommand;

namespace {

const std::string annaHash = NLALogin::ntHashHex("correct horse");

// How many keyring items answer to the login's service and account.
int storedItems() {
    auto result = runCommand({"/usr/bin/secret-tool", "search", "--all", "service", NLALogin::service, "account",
                              NLALogin::account});
    std::istringstream lines(result.out + result.err);
    int count = 0;
    for (std::string line; std::getline(lines, line);)
        if (line.rfind("[/", 0) == 0) ++count;
    return count;
}

void storeRaw(const std::string& bytes) {
    NLALogin::clear();
    ASSERT_EQ(platform::addSecret(NLALogin::service, NLALogin::account, bytes), platform::secretSuccess);
}

class LoginStore : public ::testing::Test {
protected:
    void SetUp() override {
        VELMORA_REQUIRE_KEYRING();
        ours_ = true;
        NLALogin::clear();
    }
    // TearDown runs after a skip too: only the test keyring is ever cleared.
    void TearDown() override {
        if (ours_) NLALogin::clear();
    }
    bool ours_ = false;
};

}  // namespace

// Renames are the login form's, below.
TEST_F(LoginStore, SaveLoadAndClearKeepOneItemHoldingOnlyTheHash) {
    EXPECT_EQ(NLALogin::load(), std::nullopt);
    EXPECT_FALSE(NLALogin::rename("bob"));

    ASSERT_TRUE(NLALogin::save("  anna ", "correct horse"));
    EXPECT_EQ(NLALogin::load(), "anna:" + annaHash);

    ASSERT_TRUE(NLALogin::save("anna", "battery staple"));
    EXPECT_EQ(NLALogin::load(), "anna:" + NLALogin::ntHashHex("battery staple"));
    EXPECT_EQ(storedItems(), 1) << "a second save must update the item in place";

    NLALogin::clear();
    EXPECT_EQ(NLALogin::load(), std::nullopt);
    EXPECT_EQ(storedItems(), 0);
}

TEST_F(LoginStore, OddItemsLoadAsAbsentOrAsTheyAre) {
    storeRaw("\xFF\xFE" "anna:" + annaHash);
    EXPECT_EQ(NLALogin::load(), std::nullopt) << "not UTF-8";
    storeRaw("no colon here");
    EXPECT_EQ(NLALogin::load(), std::nullopt);
    storeRaw(":" + annaHash);
    EXPECT_EQ(NLALogin::load(), std::nullopt) << "empty user name";

    // A malformed hash still loads, but cannot be renamed, and stays as it was.
    storeRaw("anna:not-a-hash");
    EXPECT_EQ(NLALogin::load(), "anna:not-a-hash");
    EXPECT_EQ(NLALogin::user(NLALogin::load()), "anna");
    EXPECT_FALSE(NLALogin::rename("bob"));
    EXPECT_EQ(NLALogin::load(), "anna:not-a-hash");
}

// A missing password and a name of spaces are the settings form's test.
TEST_F(LoginStore, TheLoginFormSavesRenamesAndSaysWhatTheSettingsWindowSays) {
    using namespace velmora::LoginForm;
    EXPECT_EQ(apply("anna@corp", "pw"), badNameOrKeyring());
    EXPECT_EQ(apply("\tanna ", "pw"), std::nullopt);
    EXPECT_EQ(NLALogin::load(), "anna:" + NLALogin::ntHashHex("pw"));
    // A name without a password renames, keeping the hash.
    EXPECT_EQ(apply("bob", ""), std::nullopt);
    EXPECT_EQ(NLALogin::load(), "bob:" + NLALogin::ntHashHex("pw"));
    EXPECT_EQ(apply("b:ob", ""), std::string(badName));
    EXPECT_EQ(NLALogin::load(), "bob:" + NLALogin::ntHashHex("pw"));
}

// With no keyring reachable at all, saving fails and loading finds nothing, without hanging.
TEST(LoginWithoutKeyring, SaveFailsAndLoadIsAbsent) {
    velmora::test::TempHome home;
    const std::string velmora = velmora::test::builtExecutable("bin/velmora");
    const std::map<std::string, std::optional<std::string>> noBus = {
        {"DBUS_SESSION_BUS_ADDRESS", "unix:path=" + home.path() + "/no-such-bus"},
        {"DISPLAY", std::nullopt},
        {"XDG_RUNTIME_DIR", home.path()}};
    auto set = runCommand({velmora, "login", "set", "anna"}, noBus, "pw\n");
    EXPECT_EQ(set.exitCode, 1);
    EXPECT_EQ(set.err, velmora::LoginForm::badNameOrKeyring() + "\n");
    auto show = runCommand({velmora, "login", "show"}, noBus);
    EXPECT_EQ(show.exitCode, 0);
    EXPECT_EQ(show.out, "not set\n");
}
