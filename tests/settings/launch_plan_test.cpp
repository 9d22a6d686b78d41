#include "settings/launch_plan.h"
#include "settings/plan_listing.h"
#include "settings/settings_table.h"

#include <gtest/gtest.h>

#include <tuple>

using namespace velmora;

namespace {

ServerSettings defaults() {
    ServerSettings s;
    s.statsFile = "/home/anna/.local/share/velmora/server-stats.json";
    return s;
}

// Each named variable's value in the plan, or absent.
void expectVariables(const Environment& base, const ServerSettings& s,
                     const std::map<std::string, std::optional<std::string>>& expected) {
    const Environment environment = buildLaunchPlan(base, s).environment;
    for (const auto& [name, value] : expected) {
        auto found = environment.find(name);
        EXPECT_EQ(found == environment.end() ? std::nullopt : std::optional(found->second), value) << name;
    }
}

}  // namespace

TEST(LaunchPlan, SwitchesAndChoicesMapToTheirVariablesAndOutOfListValuesFallBack) {
    ServerSettings s = defaults();
    std::tie(s.avc444, s.port, s.remoteScreen) = std::tuple(true, 3390, RemoteScreen::extend);
    EXPECT_EQ(buildLaunchPlan({}, s).arguments, (std::vector<std::string>{"/port:3390", "+auth", "/sec:tls", "+gfx-avc444",
                                                                           "+server-side-cursor", "/max-connections:5"}));
    expectVariables({}, s, {{"MAC_SHADOW_MIRROR", "0"}, {"MAC_SHADOW_VIRTUAL", "auto"}});
    std::tie(s.remoteScreen, s.audio, s.videoEncoder) = std::tuple(RemoteScreen::real, false, false);
    expectVariables({}, s, {{"MAC_SHADOW_VIRTUAL", "never"}, {"MAC_SHADOW_MIRROR", "0"}, {"MAC_SHADOW_AUDIO", "0"},
                            {"FREERDP_VIDEOTOOLBOX_ENCODER", "0"}});

    // Out-of-list values fall back; what is off removes what the environment held.
    const Environment base{{"WLOG_LEVEL", "DEBUG"}, {"MAC_SHADOW_MAX_WIDTH", "1280"}, {"MAC_SHADOW_H264_GOP_SEC", "3"},
                           {"MAC_SHADOW_STATS_FILE", "/elsewhere"}};
    s = defaults();
    s.statsFile.reset();
    std::tie(s.h264Profile, s.sizeAlign, s.bitrateMbps) = std::tuple("High", 32, -4);  // the bitrate passed on as it is
    expectVariables(base, s, {{"WLOG_LEVEL", "DEBUG"}, {"MAC_SHADOW_MAX_WIDTH", std::nullopt},
                              {"MAC_SHADOW_H264_GOP_SEC", std::nullopt}, {"MAC_SHADOW_STATS_FILE", std::nullopt},
                              {"MAC_SHADOW_H264_PROFILE", "baseline"}, {"MAC_SHADOW_SIZE_ALIGN", "2"},
                              {"MAC_SHADOW_BITRATE_MBPS", "-4"}});
    std::tie(s.h264Profile, s.sizeAlign, s.maxWidth, s.h264GopSec) = std::tuple("high", 16, 4096, 2);
    expectVariables(base, s, {{"MAC_SHADOW_H264_PROFILE", "high"}, {"MAC_SHADOW_SIZE_ALIGN", "16"},
                              {"MAC_SHADOW_MAX_WIDTH", "4096"}, {"MAC_SHADOW_H264_GOP_SEC", "2"}});
}

// The default settings' whole plan with a login: inherited variables other than the server's own
// stay untouched. (The plan command's test shows the plan without a login required.)
TEST(PlanListing, ShowsArgumentsThenChangedAndRemovedVariablesButNeverTheLogin) {
    ServerSettings s = defaults();
    s.nlaLogin = "anna:8846f7eaee8fb117ad06bdd830b7586c";
    Environment own{{"HOME", "/home/anna"}, {"MAC_SHADOW_MAX_WIDTH", "1280"}, {"MAC_SHADOW_FPS", "30"},
                    {"KORVEN_CLI", "/x"}};
    std::string listing = planListing(buildLaunchPlan(own, s), own);
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
}
