#include "settings/launch_plan.h"

#include "core/server_contract.h"
#include "core/text.h"
#include "platform/paths.h"


namespace velmora {

namespace {

std::string flag(bool on) { return on ? "1" : "0"; }

void setOrRemove(Environment& env, std::string_view name, bool present, const std::string& value) {
    if (present) env[std::string(name)] = value;
    else env.erase(std::string(name));
}

std::string& set(Environment& env, std::string_view name) { return env[std::string(name)]; }

}  // namespace

LaunchPlan buildLaunchPlan(const Environment& baseEnvironment, const ServerSettings& s) {
    using namespace Contract;
    LaunchPlan plan;
    const bool nla = s.requireLogin && s.nlaLogin.has_value();

    auto& args = plan.arguments;
    args.push_back(std::string(Switch::port) + std::to_string(s.port));
    args.emplace_back(s.requireLogin ? Switch::authOn : Switch::authOff);
    args.emplace_back(Switch::tls);
    if (nla) args.emplace_back(Switch::nla);
    args.emplace_back(s.avc444 ? Switch::avc444On : Switch::avc444Off);
    if (!s.cursor) args.emplace_back(Switch::serverSideCursor);
    args.push_back(std::string(Switch::maxConnections) + std::to_string(Contract::maxConnections));

    Environment& env = plan.environment;
    env = baseEnvironment;
    env.try_emplace(std::string(Env::logLevel), "INFO");  // an inherited level is kept
    set(env, Env::scale) = text::fixedDecimal(s.scale, 2);
    set(env, Env::fps) = std::to_string(s.fps);
    set(env, Env::adaptiveFps) = flag(s.adaptiveFps);
    set(env, Env::cursor) = flag(s.cursor);
    set(env, Env::maxPixels) = std::to_string(s.maxPixels);
    set(env, Env::virtualDisplay) = s.remoteScreen == RemoteScreen::real ? "never" : "auto";
    set(env, Env::mirror) = flag(s.remoteScreen == RemoteScreen::mirror);
    set(env, Env::audio) = flag(s.audio);
    set(env, Env::clipboard) = flag(s.clipboard);
    set(env, Env::videoToolbox) = flag(s.videoEncoder);
    set(env, Env::bitrateMbps) = std::to_string(s.bitrateMbps);
    setOrRemove(env, Env::maxWidth, s.maxWidth >= 1, std::to_string(s.maxWidth));
    set(env, Env::ctrlAsCmd) = flag(s.ctrlAsCmd);
    setOrRemove(env, Env::statsFile, s.statsFile.has_value(), s.statsFile.value_or(""));
    const bool knownProfile = s.h264Profile == "baseline" || s.h264Profile == "main" || s.h264Profile == "high";
    set(env, Env::h264Profile) = knownProfile ? s.h264Profile : "baseline";
    setOrRemove(env, Env::h264GopSec, s.h264GopSec >= 1, std::to_string(s.h264GopSec));
    const bool knownAlign = s.sizeAlign == 4 || s.sizeAlign == 8 || s.sizeAlign == 16;
    set(env, Env::sizeAlign) = knownAlign ? std::to_string(s.sizeAlign) : "2";
    setOrRemove(env, Env::nlaLogin, nla, s.nlaLogin.value_or(""));
    set(env, Env::parentWatch) = "1";
    return plan;
}

std::string statsPath() {
    std::string folder = platform::statsDirectory();
    platform::makeDirectories(folder);
    return folder + "/server-stats.json";
}

}  // namespace velmora
