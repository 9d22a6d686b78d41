#pragma once
// Every setting, declared once: its defaults key, type and default, where the settings snapshot
// keeps it, how the server gets it, how the settings window edits it, and whether this platform's
// server honours it. The registered defaults, currentSettings, ServerSettings' defaults, the
// settings form and the launch plan's environment are derived from this table.

#include "platform/defaults_store.h"
#include "platform/words.h"
#include "settings/server_settings.h"

#include <cstdint>
#include <limits>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace velmora {

enum class SettingType { boolean, integer, real, text };

// Where ServerSettings keeps a setting (none: the setting is not part of the snapshot).
using SettingField = std::variant<std::monostate, bool ServerSettings::*, std::int64_t ServerSettings::*,
                                  double ServerSettings::*, std::string ServerSettings::*,
                                  RemoteScreen ServerSettings::*>;

// How the server gets a setting through its environment.
enum class EnvRule {
    none,               // not through the environment (a switch, or not for the server)
    value,              // always set: "1"/"0", decimal, two decimals
    positiveOrRemoved,  // set when 1 or more, removed otherwise
    oneOf,              // set to the value when it is one of `allowed`, else to the default
};

// How the settings window edits a setting.
enum class SettingControl { none, portField, slider, popUp, checkBox };

// How a stored value selects a pop-up item.
enum class ChoiceMatch {
    exactOrNone,   // the item with that value, else none
    exactOrFirst,  // the item with that value, else the first
    atLeast,       // the last item whose `from` is at most the value
};

// A pop-up's item: its title and the value stored for it.
struct SettingChoice {
    platform::Words title;
    platform::DefaultsValue value;
    std::int64_t from = std::numeric_limits<std::int64_t>::min();  // for ChoiceMatch::atLeast
};

// Whether a platform's server does what a setting asks.
enum class Support {
    honoured,
    notYet,       // the window shows it disabled, saying why
    meaningless,  // the window does not show it: nothing like it exists there
};

// A frame in the macOS settings window's content, from its bottom-left corner.
struct Frame {
    int x = 0, y = 0, width = 0, height = 0;
};

struct Setting {
    const char* key;
    SettingType type;
    // The registered default; for a setting that is not registered, its value while nothing (or,
    // for text, no text) is stored.
    platform::DefaultsValue fallback;
    bool registered = true;
    SettingField field{};
    // Integers outside [min, max] read as the default.
    std::optional<std::pair<std::int64_t, std::int64_t>> range{};
    // A guard of the user's safety: a stored value of another type reads as the (safe) default,
    // and the log says so, rather than as whatever the type conversion makes of it.
    bool guarded = false;

    std::string_view env{};
    EnvRule envRule = EnvRule::none;
    std::vector<platform::DefaultsValue> allowed{};  // EnvRule::oneOf

    SettingControl control = SettingControl::none;
    platform::Words label{""};  // the row's label, or a check box's title
    platform::Words tooltip{""};
    std::vector<SettingChoice> choices{};
    ChoiceMatch match = ChoiceMatch::exactOrFirst;
    bool unselectedSavesDefault = false;  // else an unselected pop-up saves its nearest item
    Frame frame{};                        // the control's frame
    int labelY = 0;                       // the label's height in the window; 0: no label

    Support onMac = Support::honoured;
    Support onX11 = Support::honoured;
};

// Every setting; settings with a control come in the window's order.
const std::vector<Setting>& settingsTable();
// The setting stored under `key`; nullptr when there is none.
const Setting* findSetting(std::string_view key);
// Whether this platform's server (or that of the given column) honours it.
Support supportHere(const Setting& setting);
Support supportIn(const Setting& setting, platform::Column column);
// "Ignored by this server: " and the keys of the server settings this platform's server does not
// honour, in table order; empty when it honours them all.
std::string ignoredSettingsLine();

// The value the snapshot holds for the setting, read from `store` (registered defaults, range and
// legacy rules applied).
platform::DefaultsValue readSetting(const Setting& setting, const platform::DefaultsStore& store);
// The value `settings` holds for it (a remote screen as its raw value).
platform::DefaultsValue fieldValue(const Setting& setting, const ServerSettings& settings);
// Sets the field to `value`.
void setField(const Setting& setting, ServerSettings& settings, const platform::DefaultsValue& value);

}  // namespace velmora
