#include "permissions/helper_perms.h"

#include "core/manual_queue.h"
#include "platform/app_log.h"
#include "platform/paths.h"
#include "support/log_lines.h"
#include "support/scoped_env.h"
#include "support/temp_home.h"

#include <gtest/gtest.h>


using namespace velmora;
using namespace velmora::test;

namespace {

class HelperPermsTest : public ::testing::Test {
protected:
    void SetUp() override { platform::makeDirectories(platform::logDirectory()); }

    // An installed-looking prefix whose server records each probe and answers `answer`.
    void installServer(const std::string& answer) {
        writeScript(prefix + "/libexec/velmora/velmora-server",
                    "echo \"$MAC_SHADOW_PERMS $WLOG_LEVEL $*\" >> '" + calls + "'\n" + answer + "\n");
    }
    // A reset tool that records its arguments and says nothing, but fails for Accessibility with an odd answer.
    std::string installResetTool() {
        return writeScript(home.path() + "/tccutil", "echo \"$*\" >> '" + resets + "'\n"
                                                     "[ \"$2\" = Accessibility ] && { echo ' odd  '; exit 1; }\nexit 0\n");
    }
    std::shared_ptr<HelperPerms> make(std::optional<std::string> resetTool = std::nullopt) {
        return HelperPerms::create(queue, store, {.bundleRoot = prefix, .resetTool = std::move(resetTool)});
    }

    // Starts a probe or repair with a completion and waits for that to run on the main queue.
    std::optional<PermStatus> await(const std::function<void(HelperPerms::Completion)>& start) {
        bool called = false;
        std::optional<PermStatus> result;
        start([&](std::optional<PermStatus> status) {
            called = true;
            result = status;
        });
        EXPECT_TRUE(queue.runUntil([&] { return called; }, 30));
        return result;
    }
    std::optional<PermStatus> run(const std::shared_ptr<HelperPerms>& perms, const std::string& mode) {
        return await([&](HelperPerms::Completion done) { perms->probe(mode, std::move(done)); });
    }

    TempHome home;
    ScopedEnv noOverride{"KORVEN_CLI", std::nullopt};
    const std::string prefix = home.path() + "/prefix", calls = home.path() + "/calls", resets = home.path() + "/resets";
    ManualQueue queue;
    platform::DefaultsStore store;
};

}  // namespace

TEST_F(HelperPermsTest, ProbeRecordsLogsAndRemembersAGrantOnceAndWithoutAServerFailsQuietly) {
    installServer("echo 'server starting'; echo 'screen=1 input=0'");
    auto perms = make();
    EXPECT_EQ(run(perms, "check"), (PermStatus{true, false}));
    EXPECT_FALSE(perms->grantedBefore());
    EXPECT_EQ(readFile(calls), "check ERROR /port:33895\n");

    installServer("echo 'screen=1 input=1'");
    EXPECT_EQ(run(perms, "request"), (PermStatus{true, true}));

    // No usable answer: the earlier status kept, the grant not forgotten.
    installServer("echo 'screen=maybe input=1'; exit 1");
    EXPECT_EQ(run(perms, "check"), std::nullopt);  // noted as failed: the controller's test shows it
    EXPECT_EQ(perms->last(), (PermStatus{true, true}));
    EXPECT_TRUE(perms->grantedBefore());
    EXPECT_EQ(logMessages(), (std::vector<std::string>{"permission check: screen=1 input=0",
                                                       "permission request: screen=1 input=1",
                                                       "permission check: no answer from the server"}));

    // Once the service is gone, a queued probe's answer finds nobody.
    bool called = false;
    perms->check([&](std::optional<PermStatus>) { called = true; });
    perms.reset();
    queue.runPending();
    EXPECT_FALSE(called);

    // Without an executable server the probe fails at once and quietly; the answer still comes later.
    writeFile(home.path() + "/not-executable", "echo screen=1 input=1");
    ScopedEnv korven("KORVEN_CLI", home.path() + "/not-executable");
    perms = make();
    perms->check([&](std::optional<PermStatus> status) { called = !status; });
    EXPECT_TRUE(perms->lastProbeFailed());
    EXPECT_FALSE(called);
    queue.runPending();
    EXPECT_TRUE(called);
    EXPECT_EQ(logMessages().size(), 3u);
}

TEST_F(HelperPermsTest, RepairResetsOnlyWhatIsMissingThenRequestsAndTheLegacyCleanUpRunsOnce) {
    installServer("echo 'screen=1 input=1'");
    // Linux keeps no privacy lists: the repair still runs the request probe.
    EXPECT_FALSE(platform::privacyResetTool());
    auto perms = make();
    await([&](HelperPerms::Completion done) { perms->repair(permRepairPlan({false, false}, false), std::move(done)); });
    EXPECT_EQ(readFile(calls), "request ERROR /port:33895\n");
    ::unlink(platform::AppLog::path().c_str());

    perms = make(installResetTool());
    auto repair = [&](PermStatus status, bool grantedBefore) {
        return await([&](HelperPerms::Completion done) { perms->repair(permRepairPlan(status, grantedBefore), std::move(done)); });
    };
    EXPECT_EQ(repair({true, false}, false), (PermStatus{true, true}));
    EXPECT_EQ(readFile(resets), "reset Accessibility com.velmora.shadow\n");
    EXPECT_EQ(logMessages(), (std::vector<std::string>{"tccutil reset Accessibility com.velmora.shadow: exit 1 (odd)",
                                                       "permission request: screen=1 input=1"}));
    // An empty plan runs no probe and answers with the last status.
    EXPECT_EQ(repair({true, true}, true), perms->last());
    EXPECT_EQ(readFile(calls), "request ERROR /port:33895\nrequest ERROR /port:33895\n");

    ::unlink(resets.c_str());
    perms->cleanUpLegacyEntriesOnce();  // the same resets for the app's own entries, logged as above
    perms->drainQueue();
    auto again = make(installResetTool());
    again->cleanUpLegacyEntriesOnce();
    again->drainQueue();
    EXPECT_EQ(readFile(resets), "reset ScreenCapture com.velmora.app\nreset Accessibility com.velmora.app\n");

    make(home.path() + "/missing-tccutil")->tccReset("ScreenCapture", "com.velmora.shadow");
    EXPECT_EQ(logMessages().back(), "tccutil failed: No such file or directory");
}

TEST(AppLog, LinesCarryALocalTimeStampWithMillisecondsAfterAColon) {
    ScopedEnv zone("TZ", "UTC");
    ::tzset();
    using namespace std::chrono;
    const sys_days day{year{2026} / 11 / 22};
    EXPECT_EQ(platform::AppLog::line("permission check: screen=1 input=0", day + 9h + 5min + 7s + 4ms),
              "[09:05:07:004] [Velmora app] permission check: screen=1 input=0\n");
    {
        ScopedEnv berlin("TZ", "CET-1");
        ::tzset();
        EXPECT_EQ(platform::AppLog::timestamp(day + 23h), "00:00:00:000") << "local time, not UTC";
    }
    ::tzset();
}

TEST(AppLog, AppendsToWhatIsThereAndDropsLinesSilentlyWithoutItsFolder) {
    TempHome home;
    platform::AppLog::write("nobody will see this");
    EXPECT_FALSE(fileExists(platform::logDirectory())) << "the writer never makes the folder";
    writeFile(platform::AppLog::path(), "server output\n");
    platform::AppLog::write("first");
    EXPECT_EQ(logMessages(), (std::vector<std::string>{"server output", "first"}));
}
