// The permissions window's controller on the virtual clock, with a shell script as the server.

#include "permissions/permissions_controller.h"

#include "core/manual_queue.h"
#include "platform/paths.h"
#include "settings/keys.h"
#include "support/scoped_env.h"
#include "support/temp_home.h"

#include <gtest/gtest.h>

#include <sstream>
#include <sys/stat.h>
#include <unistd.h>

using namespace velmora;
using velmora::test::readFile;
using velmora::test::ScopedEnv;
using velmora::test::TempHome;
using velmora::test::writeFile;

namespace {

class FakeWindow final : public PermissionsWindowView {
public:
    void render(const PermissionsModel& m) override { model = m; }
    void present() override { visible = true; }
    void orderOut() override { visible = false; }
    bool onScreen() const override { return visible; }

    PermissionsModel model;
    bool visible = false;
};

const std::string screenURL = HelperPerms::screenURL;
const std::string inputURL = HelperPerms::inputURL;
const PermissionsLine unknown{"\u2026", PermColour::secondaryLabel};
const PermissionsLine allowed{"\u2713 Allowed", PermColour::green};
const PermissionsLine denied{"\u2717 Not allowed yet", PermColour::red};

class PermissionsControllerTest : public ::testing::Test {
protected:
    PermissionsControllerTest() {
        platform::makeDirectories(platform::logDirectory());
        // Answers what the answer file says; a request waits while the hold file exists.
        writeFile(server, "#!/bin/sh\n"
                          "echo \"$MAC_SHADOW_PERMS\" >> '" + home.path() + "/probes'\n"
                          "if [ \"$MAC_SHADOW_PERMS\" = request ]; then\n"
                          "  while [ -e '" + home.path() + "/hold' ]; do sleep 0.02; done\n"
                          "fi\n"
                          "cat '" + home.path() + "/answer'\n");
        ::chmod(server.c_str(), 0755);
        perms = HelperPerms::create(queue, store, {.bundleRoot = home.path() + "/no-prefix",
                                                   .openURL = [this](const std::string& url) { opened.push_back(url); }});
        controller = make(platform::Column::mac);
    }

    // The macOS window (System Settings' lists) unless told otherwise.
    std::shared_ptr<PermissionsController> make(platform::Column column) {
        return PermissionsController::create(
            queue, perms,
            [this](PermissionsController&) {
                auto made = std::make_unique<FakeWindow>();
                window = made.get();
                return made;
            },
            column);
    }

    void answer(const std::string& line) { writeFile(home.path() + "/answer", line + "\n"); }

    std::vector<std::string> probes() const {
        std::vector<std::string> lines;
        std::istringstream in(readFile(home.path() + "/probes"));
        for (std::string line; std::getline(in, line);) lines.push_back(line);
        return lines;
    }

    // Runs every probe queued so far and everything they answer, including probes those start.
    void settle() {
        do perms->drainQueue();
        while (queue.runPending() > 0);
    }

    // Two seconds pass: one poll tick.
    void tick() {
        queue.advance(PermissionsController::pollSeconds);
        settle();
    }

    TempHome home;
    std::string server = home.path() + "/server";
    ScopedEnv korven{"KORVEN_CLI", server};
    ManualQueue queue;
    platform::DefaultsStore store;
    std::shared_ptr<HelperPerms> perms;
    std::shared_ptr<PermissionsController> controller;
    FakeWindow* window = nullptr;
    std::vector<std::string> opened;
    int ready = 0;
    std::function<void()> onReady = [this] { ++ready; };
};

}  // namespace

TEST_F(PermissionsControllerTest, GrantedAtOnceContinuesByItselfOnlyWhenAskedTo) {
    answer("screen=1 input=1");
    controller->show(true, true, onReady);
    ASSERT_TRUE(window);
    EXPECT_TRUE(window->visible);
    EXPECT_EQ(window->model.screenStatus, unknown);
    EXPECT_EQ(window->model.summary, (PermissionsLine{"Checking with Velmora Server\u2026", PermColour::label}));
    EXPECT_FALSE(window->model.startButtonEnabled);
    settle();
    EXPECT_EQ(ready, 1);
    EXPECT_FALSE(window->visible);
    queue.advance(10);
    settle();
    EXPECT_EQ(ready, 1);
    EXPECT_EQ(probes(), std::vector<std::string>{"check"});  // no repair, and no poll once closed

    // Without automatic continue the window stays, polling, until "Start Server".
    controller->show(false, true, onReady);
    settle();
    tick();
    EXPECT_TRUE(window->visible);
    EXPECT_EQ(ready, 1);
    EXPECT_EQ(probes(), (std::vector<std::string>{"check", "check", "check"}));
    PermissionsModel expected{allowed, allowed, false, false, true, false, true, {"Everything is allowed.", PermColour::label}};
    EXPECT_EQ(window->model, expected);
    controller->startNow();
    EXPECT_EQ(ready, 2);
    EXPECT_FALSE(window->visible);
    controller->startNow();
    EXPECT_EQ(ready, 2);
    EXPECT_TRUE(opened.empty());
}

TEST_F(PermissionsControllerTest, LeadsFromScreenRecordingToAccessibilityOncePerShowing) {
    answer("screen=0 input=0");
    controller->show(false, true, onReady);
    settle();
    // The check found both missing: the repair requested them, then opened the first list.
    EXPECT_EQ(probes(), (std::vector<std::string>{"check", "request"}));
    EXPECT_EQ(opened, std::vector<std::string>{screenURL});
    EXPECT_EQ(window->model.screenStatus, denied);
    EXPECT_EQ(window->model.summary.text,
              "Switch on \"Velmora\" under Screen Recording and \"Velmora Server\" under Accessibility in the list "
              "that opens; this window updates by itself.");

    answer("screen=1 input=0");
    tick();
    EXPECT_EQ(opened, (std::vector<std::string>{screenURL, inputURL}));
    EXPECT_FALSE(window->model.screenButtonEnabled);
    // Switched off and on again in the same showing: not again.
    answer("screen=0 input=0");
    tick();
    answer("screen=1 input=0");
    tick();
    EXPECT_EQ(opened.size(), 2u);

    // A new showing may lead on once more.
    controller->close();
    answer("screen=0 input=0");
    controller->show(false, false, onReady);
    settle();
    answer("screen=1 input=0");
    tick();
    tick();
    EXPECT_EQ(opened, (std::vector<std::string>{screenURL, inputURL, inputURL}));
    EXPECT_EQ(ready, 0);
}

TEST_F(PermissionsControllerTest, RepairAgainAndThePollWaitWhileARepairRuns) {
    answer("screen=1 input=0");
    platform::DefaultsStore().set(Key::helperPermsGrantedOnce, true);
    writeFile(home.path() + "/hold", "");
    controller->show(false, true, onReady);
    ASSERT_TRUE(queue.runUntil([&] { return controller->busy(); }, 30));
    EXPECT_FALSE(window->model.repairButtonEnabled);
    EXPECT_EQ(window->model.summary.text,
              "Adding Velmora Server to the lists in System Settings\u2026  (macOS may show its own prompts: choose "
              "Open System Settings.)");
    controller->repairAgain();
    queue.advance(3 * PermissionsController::pollSeconds);

    ::unlink((home.path() + "/hold").c_str());
    settle();
    EXPECT_FALSE(controller->busy());
    EXPECT_EQ(probes(), (std::vector<std::string>{"check", "request"}));
    EXPECT_EQ(opened, std::vector<std::string>{inputURL});
    EXPECT_EQ(window->model.summary.text,
              "macOS forgot the permissions after Velmora was updated.  Switch on \"Velmora Server\" under "
              "Accessibility again; this window updates by itself.");
    EXPECT_TRUE(window->model.repairButtonEnabled);
    controller->repairAgain();
    settle();
    EXPECT_EQ(probes(), (std::vector<std::string>{"check", "request", "request"}));
}

TEST_F(PermissionsControllerTest, ClosingDropsWhatWouldContinueAndAHiddenWindowIsNotPolled) {
    answer("screen=1 input=0");
    controller->show(true, false, onReady);
    settle();
    window->visible = false;  // ordered out by someone else
    queue.advance(3 * PermissionsController::pollSeconds);
    settle();
    EXPECT_EQ(probes(), std::vector<std::string>{"check"});
    window->visible = true;
    tick();
    EXPECT_EQ(probes().size(), 2u);

    // The close box while the showing's first check is still out: its "all allowed" starts nothing.
    controller->close();
    answer("screen=1 input=1");
    controller->show(true, false, onReady);
    controller->windowWillClose();
    window->visible = false;
    settle();
    queue.advance(10);
    settle();
    EXPECT_EQ(ready, 0);
    EXPECT_EQ(probes().size(), 3u);
    controller->startNow();
    EXPECT_EQ(ready, 0);
}

TEST_F(PermissionsControllerTest, AServerThatDoesNotAnswerShowsDotsAndARedSummary) {
    answer("screen=maybe input=1");
    controller->show(false, true, onReady);
    settle();
    PermissionsModel expected{unknown, unknown, true, true, false, true, true,
                              {"Velmora Server could not be asked (is it missing from the app?).  Reinstall Velmora.",
                               PermColour::red}};
    EXPECT_EQ(window->model, expected);
    // No status to repair: "Repair Again" asks first, and an unanswered question goes no further.
    controller->repairAgain();
    settle();
    EXPECT_EQ(probes(), (std::vector<std::string>{"check", "check"}));
    EXPECT_FALSE(controller->busy());
}

TEST_F(PermissionsControllerTest, OnAnX11DesktopTheWindowNamesTheCauseAndOpensNoSettings) {
    controller = make(platform::Column::x11);
    // Granted from the start: the window closes after its first check and continues once.
    answer("screen=1 input=1");
    controller->show(true, true, onReady);
    settle();
    EXPECT_EQ(ready, 1);
    EXPECT_FALSE(window->visible);

    answer("cause=no-xtest :7\nscreen=1 input=0");
    controller->show(false, true, onReady);
    settle();
    EXPECT_EQ(probes().back(), "request");  // "Check Again" asks once more; nothing to reset
    EXPECT_FALSE(window->model.paneButtonsShown);
    EXPECT_EQ(window->model.inputStatus, (PermissionsLine{"\u2717 Does not work yet", PermColour::red}));
    EXPECT_EQ(window->model.summary.text,
              "The display :7 has no XTEST extension, so the remote keyboard and mouse cannot work. Turn XTEST on in "
              "the X server (Xorg has it on by default).");
    controller->openInput();
    controller->openScreen();
    EXPECT_TRUE(opened.empty());
}
