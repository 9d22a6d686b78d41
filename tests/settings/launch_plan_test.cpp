#include "settings/launch_plan.h"
#include "settings/plan_listing.h"
#include "settings/settings_table.h"

#include <gtest/gtest.h>

using namespace velmora;

namespace {

const std::string entry = "anna:8846f7eaee8fb117ad06bdd830b7586c";

ServerSettings defaults() {
    ServerSettings s;
    s.statsFile = "/home/anna/.local/share/velmora/server-stats.json";
    return s;
}

std::vector<std::string> args(std::initializer_list<const char*> list) { return {list.begin(), list.end()}; }

}  // namespace

TEST(LaunchPlan, SwitchesAndChoicesMapToTheirVariables) {
    ServerSettings s = defaults();
    s.cursor = true;
    s.avc444 = true;
    s.port = 3390;
    s.remoteScreen = RemoteScreen::extend;
    LaunchPlan plan = buildLaunchPlan({}, s);
    EXPECT_EQ(plan.arguments, args({"/port:3390", "+auth", "/sec:tls", "+gfx-avc444", "/max-connections:5"}));
    EXPECT_EQ(plan.environment.at("MAC_SHADOW_CURSOR"), "1");
    EXPECT_EQ(plan.environment.at("MAC_SHADOW_MIRROR"), "0");
    s.remoteScreen = RemoteScreen::real;
    s.scale = 1;
    s.audio = false;
    s.videoEncoder = false;
    plan = buildLaunchPlan({}, s);
    EXPECT_EQ(plan.environment.at("MAC_SHADOW_VIRTUAL"), "never");
    EXPECT_EQ(plan.environment.at("MAC_SHADOW_SCALE"), "1.00");
    EXPECT_EQ(plan.environment.at("MAC_SHADOW_AUDIO"), "0");
    EXPECT_EQ(plan.environment.at("FREERDP_VIDEOTOOLBOX_ENCODER"), "0");
}

TEST(LaunchPlan, OutOfListValuesFallBackAndOffSettingsRemoveInheritedVariables) {
    ServerSettings s = defaults();
    Environment base{{"WLOG_LEVEL", "DEBUG"},
                     {"MAC_SHADOW_MAX_WIDTH", "1280"},
                     {"MAC_SHADOW_H264_GOP_SEC", "3"},
                     {"MAC_SHADOW_STATS_FILE", "/elsewhere"}};
    s.statsFile.reset();
    s.h264Profile = "High";
    s.sizeAlign = 32;
    s.bitrateMbps = -4;
    LaunchPlan plan = buildLaunchPlan(base, s);
    EXPECT_EQ(plan.environment.at("WLOG_LEVEL"), "DEBUG");
    EXPECT_EQ(plan.environment.count("MAC_SHADOW_MAX_WIDTH"), 0u);
    EXPECT_EQ(plan.environment.count("MAC_SHADOW_H264_GOP_SEC"), 0u);
    EXPECT_EQ(plan.environment.count("MAC_SHADOW_STATS_FILE"), 0u);
    EXPECT_EQ(plan.environment.at("MAC_SHADOW_H264_PROFILE"), "baseline");
    EXPECT_EQ(plan.environment.at("MAC_SHADOW_SIZE_ALIGN"), "2");
    EXPECT_EQ(plan.environment.at("MAC_SHADOW_BITRATE_MBPS"), "-4") << "passed on as it is";

    s.h264Profile = "high";
    s.sizeAlign = 16;
    s.maxWidth = 4096;
    s.h264GopSec = 2;
    plan = buildLaunchPlan(base, s);
    EXPECT_EQ(plan.environment.at("MAC_SHADOW_H264_PROFILE"), "high");
    EXPECT_EQ(plan.environment.at("MAC_SHADOW_SIZE_ALIGN"), "16");
    EXPECT_EQ(plan.environment.at("MAC_SHADOW_MAX_WIDTH"), "4096");
    EXPECT_EQ(plan.environment.at("MAC_SHADOW_H264_GOP_SEC"), "2");
    s.sizeAlign = 0;
    EXPECT_EQ(buildLaunchPlan(base, s).environment.at("MAC_SHADOW_SIZE_ALIGN"), "2");
}

// The default settings' whole plan: inherited variables other than the server's own stay untouched.
TEST(PlanListing, ShowsArgumentsThenChangedAndRemovedVariablesButNeverTheLogin) {
    ServerSettings s = defaults();
    s.nlaLogin = entry;
    Environment own{{"HOME", "/home/anna"}, {"MAC_SHADOW_MAX_WIDTH", "1280"}, {"MAC_SHADOW_FPS", "30"},
                    {"KORVEN_CLI", "/x"}};
    LaunchPlan plan = buildLaunchPlan(own, s);
    EXPECT_EQ(plan.environment.at("MAC_SHADOW_NLA"), entry);  // the login reaches the server in its environment only
    std::string listing = planListing(plan, own);
    EXPECT_EQ(listing,
              "/port:3389\n+auth\n/sec:tls\n+sec-nla\n-gfx-avc444\n+server-side-cursor\n/max-connections:5\n"
              "\n"
              "FREERDP_VIDEOTOOLBOX_ENCODER=1\n"
              "MAC_SHADOW_ADAPTIVE_FPS=1\n"
              "MAC_SHADOW_AUDIO=1\n"
              "MAC_SHADOW_BITRATE_MBPS=10\n"
              "MAC_SHADOW_CLIPBOARD=1\n"
              "MAC_SHADOW_CTRL_AS_CMD=1\n"
              "MAC_SHADOW_CURSOR=0\n"
              "MAC_SHADOW_H264_PROFILE=baseline\n"
              "MAC_SHADOW_MAX_PIXELS=2073600\n"
              "-MAC_SHADOW_MAX_WIDTH\n"
              "MAC_SHADOW_MIRROR=1\n"
              "MAC_SHADOW_NLA=[removed]\n"
              "MAC_SHADOW_PARENT_WATCH=1\n"
              "MAC_SHADOW_SCALE=0.75\n"
              "MAC_SHADOW_SIZE_ALIGN=2\n"
              "MAC_SHADOW_STATS_FILE=/home/anna/.local/share/velmora/server-stats.json\n"
              "MAC_SHADOW_VIRTUAL=auto\n"
              "WLOG_LEVEL=INFO\n" +
                  // Then what this platform's server ignores, if anything.
                  (ignoredSettingsLine().empty() ? "" : "\n" + ignoredSettingsLine() + "\n"));
    EXPECT_EQ(listing.find("8846f7"), std::string::npos);
    // An inherited login never leaks through when none is required (see also the plan command's test).
    s.requireLogin = false;
    EXPECT_EQ(buildLaunchPlan({{"MAC_SHADOW_NLA", "leaked:from-parent"}}, s).environment.count("MAC_SHADOW_NLA"), 0u);
}
