#include "settings/settings_store.h"

#include "nla/nla_login.h"
#include "permissions/app_log.h"
#include "settings/keys.h"
#include "settings/launch_plan.h"

namespace velmora {

using platform::DefaultsValue;

std::map<std::string, DefaultsValue> registeredSettingsDefaults() {
    return {
        {Key::usagePing, true},
        {Key::adaptiveFps, true},
        {Key::port, std::int64_t{3389}},
        {Key::scale, 0.75},
        {Key::fps, std::int64_t{30}},
        {Key::cursor, false},
        {Key::auth, true},
        {Key::avc444, false},
        {Key::ctrlCmd, true},
        {Key::audio, true},
        {Key::clipboard, true},
        {Key::maxSize, std::int64_t{2073600}},
        {Key::autoStart, true},
        {Key::hwenc, true},
        {Key::bitrate, std::int64_t{10}},
        {Key::maxWidth, std::int64_t{0}},
    };
}

void registerDefaultsAndMigrate(platform::DefaultsStore& store) {
    store.registerDefaults(registeredSettingsDefaults());
    if (!store.storedObject(Key::sec)) return;
    if (store.string(Key::sec) == "rdp") AppLog::write("the RDP (legacy) security setting was removed: using TLS");
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
    ServerSettings s;
    s.port = settingsPort(store.integer(Key::port)).value_or(3389);
    s.scale = store.real(Key::scale);
    s.fps = store.integer(Key::fps);
    s.adaptiveFps = store.boolean(Key::adaptiveFps);
    s.cursor = store.boolean(Key::cursor);
    s.requireLogin = store.boolean(Key::auth);
    s.avc444 = store.boolean(Key::avc444);
    s.ctrlAsCmd = store.boolean(Key::ctrlCmd);
    s.audio = store.boolean(Key::audio);
    s.clipboard = store.boolean(Key::clipboard);
    s.maxPixels = store.integer(Key::maxSize);
    s.remoteScreen = remoteScreenFrom(store.string(Key::remoteScreen), store.string(Key::virtualMode));
    s.videoEncoder = store.boolean(Key::hwenc);
    s.bitrateMbps = store.integer(Key::bitrate);
    s.maxWidth = store.integer(Key::maxWidth);
    s.statsFile = statsPath();
    s.h264Profile = store.string(Key::h264Profile).value_or("baseline");
    s.h264GopSec = store.integer(Key::h264GopSec);
    // A stored 0 stays 0; only a missing key means the default alignment.
    s.sizeAlign = store.object(Key::sizeAlign) ? store.integer(Key::sizeAlign) : 2;
    s.nlaLogin = loadLogin();
    return s;
}

}  // namespace velmora
