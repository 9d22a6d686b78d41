#include "settings/settings_store.h"

#include "nla/nla_login.h"
#include "platform/app_log.h"
#include "settings/keys.h"
#include "settings/launch_plan.h"
#include "settings/settings_table.h"

namespace velmora {

using platform::DefaultsValue;

std::map<std::string, DefaultsValue> registeredSettingsDefaults() {
    std::map<std::string, DefaultsValue> defaults;
    for (const Setting& setting : settingsTable())
        if (setting.registered) defaults.emplace(setting.key, setting.fallback);
    return defaults;
}

void registerDefaultsAndMigrate(platform::DefaultsStore& store) {
    store.registerDefaults(registeredSettingsDefaults());
    if (!store.storedObject(Key::sec)) return;
    if (store.string(Key::sec) == "rdp") platform::AppLog::write("the RDP (legacy) security setting was removed: using TLS");
    store.remove(Key::sec);
}

std::optional<std::int64_t> settingsPort(std::int64_t stored) {
    if (stored >= 1024 && stored <= 65535) return stored;
    return std::nullopt;
}

ServerSettings currentSettings(const platform::DefaultsStore& store) {
    return currentSettings(store, [] { return NLALogin::load(); });
}

ServerSettings currentSettings(const platform::DefaultsStore& store, const LoginLoader& loadLogin) {
    ServerSettings settings;
    for (const Setting& setting : settingsTable())
        if (!std::holds_alternative<std::monostate>(setting.field)) setField(setting, settings, readSetting(setting, store));
    settings.statsFile = statsPath();
    settings.nlaLogin = loadLogin();
    return settings;
}

}  // namespace velmora
