#include "settings/launch_plan.h"

#include "core/text.h"
#include "platform/paths.h"

#include <cstdio>

namespace velmora {

namespace {

std::string flag(bool on) { return on ? "1" : "0"; }

void setOrRemove(Environment& env, const std::string& name, bool present, const std::string& value) {
    if (present) env[name] = value;
    else env.erase(name);
}

}  // namespace

LaunchPlan buildLaunchPlan(const Environment& baseEnvironment, const ServerSettings& s) {
    LaunchPlan plan;
    const bool nla = s.requireLogin && s.nlaLogin.has_value();

    auto& args = plan.arguments;
    args.push_back("/port:" + std::to_string(s.port));
    args.push_back(s.requireLogin ? "+auth" : "-auth");
    args.push_back("/sec:tls");
    if (nla) args.push_back("+sec-nla");
    args.push_back(s.avc444 ? "+gfx-avc444" : "-gfx-avc444");
    if (!s.cursor) args.push_back("+server-side-cursor");
    args.push_back("/max-connections:" + std::to_string(maxConnections));

    Environment& env = plan.environment;
    env = baseEnvironment;
    env.try_emplace("WLOG_LEVEL", "INFO");  // an inherited level is kept
    env["MAC_SHADOW_SCALE"] = text::fixedDecimal(s.scale, 2);
    env["MAC_SHADOW_FPS"] = std::to_string(s.fps);
    env["MAC_SHADOW_ADAPTIVE_FPS"] = flag(s.adaptiveFps);
    env["MAC_SHADOW_CURSOR"] = flag(s.cursor);
    env["MAC_SHADOW_MAX_PIXELS"] = std::to_string(s.maxPixels);
    env["MAC_SHADOW_VIRTUAL"] = s.remoteScreen == RemoteScreen::real ? "never" : "auto";
    env["MAC_SHADOW_MIRROR"] = flag(s.remoteScreen == RemoteScreen::mirror);
    env["MAC_SHADOW_AUDIO"] = flag(s.audio);
    env["MAC_SHADOW_CLIPBOARD"] = flag(s.clipboard);
    env["FREERDP_VIDEOTOOLBOX_ENCODER"] = flag(s.videoEncoder);
    env["MAC_SHADOW_BITRATE_MBPS"] = std::to_string(s.bitrateMbps);
    setOrRemove(env, "MAC_SHADOW_MAX_WIDTH", s.maxWidth >= 1, std::to_string(s.maxWidth));
    env["MAC_SHADOW_CTRL_AS_CMD"] = flag(s.ctrlAsCmd);
    setOrRemove(env, "MAC_SHADOW_STATS_FILE", s.statsFile.has_value(), s.statsFile.value_or(""));
    const bool knownProfile = s.h264Profile == "baseline" || s.h264Profile == "main" || s.h264Profile == "high";
    env["MAC_SHADOW_H264_PROFILE"] = knownProfile ? s.h264Profile : "baseline";
    setOrRemove(env, "MAC_SHADOW_H264_GOP_SEC", s.h264GopSec >= 1, std::to_string(s.h264GopSec));
    const bool knownAlign = s.sizeAlign == 4 || s.sizeAlign == 8 || s.sizeAlign == 16;
    env["MAC_SHADOW_SIZE_ALIGN"] = knownAlign ? std::to_string(s.sizeAlign) : "2";
    setOrRemove(env, "MAC_SHADOW_NLA", nla, s.nlaLogin.value_or(""));
    env["MAC_SHADOW_PARENT_WATCH"] = "1";
    return plan;
}

std::string statsPath() {
    std::string folder = platform::statsDirectory();
    platform::makeDirectories(folder);
    return folder + "/server-stats.json";
}

}  // namespace velmora
