// The permissions window's controller on the virtual clock, with a shell script as the server.

#include "permissions/permissions_controller.h"

#include "core/manual_queue.h"
#include "platform/paths.h"
#include "settings/keys.h"
#include "support/scoped_env.h"
#include "support/temp_home.h"

#include <gtest/gtest.h>

#include <sstream>
#include <unistd.h>

using namespace velmora;
using namespace velmora::test;
using platform::say, platform::Column::mac;
namespace words = platform::words;

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

const std::string screenURL = HelperPerms::screenURL, inputURL = HelperPerms::inputURL;
const PermissionsLine allowed{"\u2713 Allowed", PermColour::green};

class PermissionsControllerTest : public ::testing::Test {
protected:
    PermissionsControllerTest() {
        platform::makeDirectories(platform::logDirectory());
        // Records and answers what the answer file says; a request waits while the hold file exists.
        writeScript(server, "cd '" + home.path() + "'\necho \"$MAC_SHADOW_PERMS\" >> probes\n"
                            "if [ \"$MAC_SHADOW_PERMS\" = request ]; then while [ -e hold ]; do sleep 0.02; done; fi\n"
                            "cat answer\n");
        perms = HelperPerms::create(queue, store, {.bundleRoot = home.path() + "/no-prefix",
                                                   .openURL = [this](const std::string& url) { opened.push_back(url); }});
        // The macOS window, which leads to System Settings' lists (the X11 one is the Qt test's).
        auto factory = [this](PermissionsController&) {
            auto made = std::make_unique<FakeWindow>();
            window = made.get();
            return made;
        };
        controller = PermissionsController::create(queue, perms, factory, platform::Column::mac);
    }

    void answer(const std::string& line) { writeFile(home.path() + "/answer", line + "\n"); }
    // The probes' modes, one letter each: "c"heck, "r"equest.
    std::string probes() const {
        std::string modes;
        std::istringstream in(readFile(home.path() + "/probes"));
        for (std::string line; std::getline(in, line);) modes += line.substr(0, 1);
        return modes;
    }
    // Runs every probe queued so far and everything they answer, including probes those start.
    void settle() {
        do perms->drainQueue();
        while (queue.runPending() > 0);
    }
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

TEST_F(PermissionsControllerTest, ContinuesByItselfOnlyWhenAskedToAndOnlyWhileTheShowingLasts) {
    answer("screen=1 input=1");
    controller->show(true, true, onReady);
    ASSERT_TRUE(window);
    EXPECT_EQ(window->model.summary, (PermissionsLine{"Checking with Velmora Server\u2026", PermColour::label}));
    settle();
    EXPECT_EQ(ready, 1);
    EXPECT_FALSE(window->visible);
    queue.advance(10);
    settle();
    EXPECT_EQ(probes(), "c");  // no repair, and no poll once closed

    // Without automatic continue the window stays, polling, until "Start Server", which continues once.
    controller->show(false, true, onReady);
    settle();
    tick();
    EXPECT_EQ(probes(), "ccc");
    PermissionsModel expected{allowed, allowed, false, false, true, false, true, {"Everything is allowed.", PermColour::label}};
    EXPECT_EQ(window->model, expected);
    controller->startNow();
    controller->startNow();
    EXPECT_EQ(ready, 2);
    EXPECT_FALSE(window->visible);

    // A window ordered out by someone else is not polled.
    answer("screen=1 input=0");
    controller->show(true, false, onReady);
    settle();
    window->visible = false;
    queue.advance(3 * PermissionsController::pollSeconds);
    settle();
    EXPECT_EQ(probes(), "cccc");
    // The close box while the showing's first check is still out: its "all allowed" starts nothing.
    controller->close();
    answer("screen=1 input=1");
    controller->show(true, false, onReady);
    controller->windowWillClose();
    window->visible = false;
    settle();
    queue.advance(10);
    settle();
    controller->startNow();
    EXPECT_EQ(ready, 2);
    EXPECT_EQ(probes(), "ccccc");
    EXPECT_TRUE(opened.empty());
}

TEST_F(PermissionsControllerTest, OnAMacRepairsOneAtATimeAndLeadsFromScreenRecordingToAccessibilityOncePerShowing) {
    // A server that does not answer: dots and a red summary; "Repair Again" asks first, and an
    // unanswered question goes no further.
    answer("screen=maybe input=1");
    controller->show(false, true, onReady);
    settle();
    const PermissionsLine unknown{"\u2026", PermColour::secondaryLabel};
    PermissionsModel expected{unknown, unknown, true, true, false, true, true, {say(words::notAsked, mac), PermColour::red}};
    EXPECT_EQ(window->model, expected);
    controller->repairAgain();
    settle();
    EXPECT_EQ(probes(), "cc");

    // Both missing: the repair requests them, then opens the first list.
    answer("screen=0 input=0");
    controller->repairAgain();
    settle();
    EXPECT_EQ(probes(), "cccr");
    EXPECT_EQ(opened, std::vector<std::string>{screenURL});
    EXPECT_EQ(window->model.screenStatus, (PermissionsLine{"\u2717 Not allowed yet", PermColour::red}));
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

    // A new showing after an update made macOS forget: "Repair Again" and the poll wait while the repair runs.
    controller->close();
    store.set(Key::helperPermsGrantedOnce, true);
    writeFile(home.path() + "/hold", "");
    controller->show(false, true, onReady);
    ASSERT_TRUE(queue.runUntil([&] { return controller->busy(); }, 30));
    EXPECT_FALSE(window->model.repairButtonEnabled);
    EXPECT_EQ(window->model.summary.text, say(words::repairing, mac));
    controller->repairAgain();
    queue.advance(3 * PermissionsController::pollSeconds);
    ::unlink((home.path() + "/hold").c_str());
    settle();
    EXPECT_EQ(probes(), "cccrccccr");
    EXPECT_EQ(opened, (std::vector<std::string>{screenURL, inputURL, inputURL}));
    EXPECT_EQ(window->model.summary.text,
              "macOS forgot the permissions after Velmora was updated.  Switch on \"Velmora Server\" under "
              "Accessibility again; this window updates by itself.");
    controller->repairAgain();
    settle();
    EXPECT_EQ(probes(), "cccrccccrr");
}
