#include "settings/settings_table.h"

#include "core/server_contract.h"
#include "core/text.h"
#include "platform/app_log.h"
#include "settings/keys.h"
#include "settings/remote_screen.h"

#include <algorithm>

namespace velmora {

namespace {

using platform::DefaultsValue;
using platform::Words;
namespace words = platform::words;
namespace Env = Contract::Env;

std::vector<Setting> makeTable() {
    using enum SettingType;
    using enum SettingControl;
    using I = std::int64_t;
    // The rows with a control come in the window's order.
    return {
        {.key = Key::port, .type = integer, .fallback = I{3389}, .field = &ServerSettings::port,
         .range = std::pair<I, I>{1024, 65535}, .control = portField, .label = {"Port"},
         .frame = {180, 660, 80, 24}, .labelY = 662},
        {.key = Key::scale, .type = real, .fallback = 0.75, .field = &ServerSettings::scale, .env = Env::scale,
         .envRule = EnvRule::value, .control = slider, .label = {"Resolution"}, .frame = {180, 622, 220, 20},
         .labelY = 622, .onX11 = Support::notYet},
        {.key = Key::fps, .type = integer, .fallback = I{30}, .field = &ServerSettings::fps, .env = Env::fps,
         .envRule = EnvRule::value, .control = popUp, .label = {"Frame rate"},
         .choices = {{{"15"}, I{15}}, {{"24"}, I{24}}, {{"30"}, I{30}}, {{"60"}, I{60}}},
         .match = ChoiceMatch::exactOrNone, .unselectedSavesDefault = true, .frame = {180, 579, 100, 26},
         .labelY = 582},
        {.key = Key::bitrate, .type = integer, .fallback = I{10}, .field = &ServerSettings::bitrateMbps,
         .env = Env::bitrateMbps, .envRule = EnvRule::value, .control = popUp, .label = {"Video bitrate"},
         .choices = {{{"5 Mbit/s"}, I{5}}, {{"10 Mbit/s"}, I{10}}, {{"20 Mbit/s"}, I{20}}, {{"40 Mbit/s"}, I{40}}},
         .match = ChoiceMatch::exactOrNone, .frame = {180, 539, 140, 26}, .labelY = 542},
        {.key = Key::maxSize, .type = integer, .fallback = I{2073600}, .field = &ServerSettings::maxPixels,
         .env = Env::maxPixels, .envRule = EnvRule::value, .control = popUp, .label = {"Size per monitor"},
         .choices = {{{"1080p (recommended)"}, I{2073600}},
                     {{"1440p"}, I{3686400}, 3000000},
                     {{"4K"}, I{8294400}, 6000000}},
         .match = ChoiceMatch::atLeast, .frame = {180, 499, 260, 26}, .labelY = 502, .onX11 = Support::notYet},
        {.key = Key::maxWidth, .type = integer, .fallback = I{0}, .field = &ServerSettings::maxWidth,
         .env = Env::maxWidth, .envRule = EnvRule::positiveOrRemoved, .control = popUp, .label = {"Widest desktop"},
         .choices = {{{"Automatic"}, I{0}}, {{"4096 px"}, I{4096}}, {{"5120 px"}, I{5120}}, {{"7680 px"}, I{7680}}},
         .frame = {180, 459, 260, 26}, .labelY = 462, .onX11 = Support::notYet},
        {.key = Key::remoteScreen, .type = text, .fallback = std::string("mirror"), .registered = false,
         .field = &ServerSettings::remoteScreen, .control = popUp, .label = {"Remote screen"},
         .tooltip = words::remoteScreenTooltip,
         .choices = {{words::mirrorTitle, std::string("mirror")},
                     {words::extendTitle, std::string("extend")},
                     {words::realTitle, std::string("real")}},
         .frame = {180, 419, 260, 26}, .labelY = 422, .onX11 = Support::notYet},
        {.key = Key::cursor, .type = boolean, .fallback = false, .field = &ServerSettings::cursor, .env = Env::cursor,
         .envRule = EnvRule::value, .control = checkBox, .label = words::cursorTitle, .frame = {180, 382, 320, 20}},
        {.key = Key::auth, .type = boolean, .fallback = true, .field = &ServerSettings::requireLogin, .guarded = true,
         .control = checkBox, .label = words::authTitle, .frame = {180, 354, 320, 20}},
        {.key = Key::ctrlCmd, .type = boolean, .fallback = true, .field = &ServerSettings::ctrlAsCmd,
         .env = Env::ctrlAsCmd, .envRule = EnvRule::value, .control = checkBox, .label = words::ctrlTitle,
         .frame = {180, 272, 320, 20}, .onX11 = Support::meaningless},
        {.key = Key::avc444, .type = boolean, .fallback = false, .field = &ServerSettings::avc444, .control = checkBox,
         .label = {"Sharper 4:4:4 video (blank in the Windows App)"}, .frame = {180, 244, 320, 20}},
        {.key = Key::audio, .type = boolean, .fallback = true, .field = &ServerSettings::audio, .env = Env::audio,
         .envRule = EnvRule::value, .control = checkBox, .label = words::audioTitle, .frame = {180, 216, 320, 20}},
        {.key = Key::clipboard, .type = boolean, .fallback = true, .field = &ServerSettings::clipboard,
         .env = Env::clipboard, .envRule = EnvRule::value, .control = checkBox,
         .label = {"Share the clipboard with the remote session"}, .tooltip = words::clipboardTooltip,
         .frame = {180, 188, 320, 20}},
        {.key = Key::hwenc, .type = boolean, .fallback = true, .field = &ServerSettings::videoEncoder,
         .env = Env::videoToolbox, .envRule = EnvRule::value, .control = checkBox, .label = words::hwencTitle,
         .frame = {180, 160, 320, 20}, .onX11 = Support::meaningless},

        {.key = Key::adaptiveFps, .type = boolean, .fallback = true, .field = &ServerSettings::adaptiveFps,
         .env = Env::adaptiveFps, .envRule = EnvRule::value},
        {.key = Key::usagePing, .type = boolean, .fallback = true},
        {.key = Key::autoStart, .type = boolean, .fallback = true},
        {.key = Key::h264Profile, .type = text, .fallback = std::string("baseline"), .registered = false,
         .field = &ServerSettings::h264Profile, .env = Env::h264Profile, .envRule = EnvRule::oneOf,
         .allowed = {std::string("baseline"), std::string("main"), std::string("high")}, .onX11 = Support::notYet},
        {.key = Key::h264GopSec, .type = integer, .fallback = I{0}, .registered = false,
         .field = &ServerSettings::h264GopSec, .env = Env::h264GopSec, .envRule = EnvRule::positiveOrRemoved,
         .onX11 = Support::notYet},
        {.key = Key::sizeAlign, .type = integer, .fallback = I{2}, .registered = false,
         .field = &ServerSettings::sizeAlign, .env = Env::sizeAlign, .envRule = EnvRule::oneOf,
         .allowed = {I{4}, I{8}, I{16}}, .onX11 = Support::notYet},
    };
}

// A stored value as the log shows it: text quoted, numbers and booleans as JSON writes them.
std::string describe(const DefaultsValue& value) {
    return std::visit(
        [](const auto& v) -> std::string {
            using V = std::decay_t<decltype(v)>;
            if constexpr (std::is_same_v<V, bool>) return v ? "true" : "false";
            else if constexpr (std::is_same_v<V, std::int64_t>) return std::to_string(v);
            else if constexpr (std::is_same_v<V, double>) return text::shortestDecimal(v);
            else return "\"" + v + "\"";
        },
        value);
}

const char* typeName(SettingType type) {
    switch (type) {
        case SettingType::boolean: return "true or false";
        case SettingType::integer: return "a whole number";
        case SettingType::real: return "a number";
        case SettingType::text: return "text";
    }
    return "value";
}

}  // namespace

const std::vector<Setting>& settingsTable() {
    static const std::vector<Setting> table = makeTable();
    return table;
}

const Setting* findSetting(std::string_view key) {
    const auto& table = settingsTable();
    auto found = std::find_if(table.begin(), table.end(), [&](const Setting& s) { return key == s.key; });
    return found == table.end() ? nullptr : &*found;
}

Support supportHere(const Setting& setting) { return supportIn(setting, platform::column()); }

Support supportIn(const Setting& setting, platform::Column column) {
    return column == platform::Column::mac ? setting.onMac : setting.onX11;
}

std::string ignoredSettingsLine() {
    std::string keys;
    for (const Setting& setting : settingsTable()) {
        if (std::holds_alternative<std::monostate>(setting.field) || supportHere(setting) == Support::honoured) continue;
        keys += (keys.empty() ? "" : ", ") + std::string(setting.key);
    }
    return keys.empty() ? keys : platform::say(words::ignoredSettings) + keys;
}

DefaultsValue readSetting(const Setting& setting, const platform::DefaultsStore& store) {
    if (std::holds_alternative<RemoteScreen ServerSettings::*>(setting.field))
        return rawValue(remoteScreenFrom(store.string(setting.key), store.string(Key::virtualMode)));
    if (setting.guarded) {
        auto stored = store.storedObject(setting.key);
        if (stored && stored->index() != setting.fallback.index()) {
            platform::AppLog::write("the setting \"" + std::string(setting.key) + "\" holds " + describe(*stored) +
                                    " instead of " + typeName(setting.type) + ": using its safe default, " +
                                    describe(setting.fallback));
            return setting.fallback;
        }
    }
    switch (setting.type) {
        case SettingType::boolean: return store.boolean(setting.key);
        case SettingType::real: return store.real(setting.key);
        case SettingType::text: {
            auto text = store.string(setting.key);
            return text ? DefaultsValue(*text) : setting.fallback;
        }
        case SettingType::integer: {
            // Registered settings are never missing; for the others absence means the default.
            if (!store.object(setting.key)) return setting.fallback;
            std::int64_t value = store.integer(setting.key);
            if (setting.range && (value < setting.range->first || value > setting.range->second))
                return setting.fallback;
            return value;
        }
    }
    return setting.fallback;
}

DefaultsValue fieldValue(const Setting& setting, const ServerSettings& settings) {
    return std::visit(
        [&](auto member) -> DefaultsValue {
            if constexpr (std::is_same_v<decltype(member), std::monostate>) return setting.fallback;
            else if constexpr (std::is_same_v<decltype(member), RemoteScreen ServerSettings::*>)
                return rawValue(settings.*member);
            else return settings.*member;
        },
        setting.field);
}

void setField(const Setting& setting, ServerSettings& settings, const DefaultsValue& value) {
    std::visit(
        [&](auto member) {
            using Member = decltype(member);
            if constexpr (std::is_same_v<Member, RemoteScreen ServerSettings::*>) {
                if (auto* raw = std::get_if<std::string>(&value))
                    settings.*member = remoteScreenFromRaw(*raw).value_or(RemoteScreen::mirror);
            } else if constexpr (!std::is_same_v<Member, std::monostate>) {
                using Value = std::remove_reference_t<decltype(settings.*member)>;
                if (auto* typed = std::get_if<Value>(&value)) settings.*member = *typed;
            }
        },
        setting.field);
}

ServerSettings::ServerSettings() {
    for (const Setting& setting : settingsTable()) setField(setting, *this, setting.fallback);
}

}  // namespace velmora
