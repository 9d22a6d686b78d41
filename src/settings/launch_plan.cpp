#include "settings/launch_plan.h"

#include "core/server_contract.h"
#include "core/text.h"
#include "platform/paths.h"
#include "settings/settings_table.h"

#include <algorithm>

namespace velmora {

namespace {

using platform::DefaultsValue;

std::string flag(bool on) { return on ? "1" : "0"; }

void setOrRemove(Environment& env, std::string_view name, bool present, const std::string& value) {
    if (present) env[std::string(name)] = value;
    else env.erase(std::string(name));
}

std::string& set(Environment& env, std::string_view name) { return env[std::string(name)]; }

// As the server reads values: booleans "1"/"0", integers in decimal, the scale with two decimals.
std::string serverText(const DefaultsValue& value) {
    return std::visit(
        [](const auto& v) -> std::string {
            using V = std::decay_t<decltype(v)>;
            if constexpr (std::is_same_v<V, bool>) return flag(v);
            else if constexpr (std::is_same_v<V, std::int64_t>) return std::to_string(v);
            else if constexpr (std::is_same_v<V, double>) return text::fixedDecimal(v, 2);
            else return v;
        },
        value);
}

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
    for (const Setting& setting : settingsTable()) {
        if (setting.envRule == EnvRule::none) continue;
        DefaultsValue value = fieldValue(setting, s);
        switch (setting.envRule) {
            case EnvRule::none: break;
            case EnvRule::value: set(env, setting.env) = serverText(value); break;
            case EnvRule::positiveOrRemoved: {
                auto* number = std::get_if<std::int64_t>(&value);
                setOrRemove(env, setting.env, number && *number >= 1, serverText(value));
                break;
            }
            case EnvRule::oneOf: {
                bool allowed = std::find(setting.allowed.begin(), setting.allowed.end(), value) != setting.allowed.end();
                set(env, setting.env) = serverText(allowed ? value : setting.fallback);
                break;
            }
        }
    }
    set(env, Env::virtualDisplay) = s.remoteScreen == RemoteScreen::real ? "never" : "auto";
    set(env, Env::mirror) = flag(s.remoteScreen == RemoteScreen::mirror);
    setOrRemove(env, Env::statsFile, s.statsFile.has_value(), s.statsFile.value_or(""));
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
