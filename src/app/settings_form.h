#pragma once
// The settings window without its widgets: which controls it has (the settings table's rows with
// a control), what each shows when the window opens (read afresh from the defaults store and the
// keyring) and what "Save and Restart" does with what the controls hold (validate, store, hide,
// restart a running server). The Qt window only binds its controls to SettingsFields. Main thread
// only.

#include "app/app_view.h"
#include "platform/defaults_store.h"
#include "settings/settings_table.h"

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <variant>
#include <vector>

namespace velmora {

class ServerSupervisor;

// What one control holds: a check box's state, a pop-up's selected index (-1: none), the slider's
// percentage (25 to 100, not rounded), a text field's text.
using ControlValue = std::variant<bool, int, double, std::string>;

struct SettingsFields {
    std::map<std::string, ControlValue> controls;  // by defaults key
    std::string nlaUser;
    std::string nlaPass;
    // Shown only.
    std::string nlaPassPlaceholder;
    std::string nlaStatus;

    template <typename T>
    T get(const std::string& key) const {
        auto found = controls.find(key);
        if (found == controls.end()) return T{};
        auto* value = std::get_if<T>(&found->second);
        return value ? *value : T{};
    }
};

namespace SettingsText {
inline constexpr const char* windowTitle = "Velmora Settings";
inline constexpr const char* loginLabel = "Windows login (NLA)";
inline constexpr const char* loginSet = "Set. Clear the user name to remove it; type a password to change it.";
inline constexpr const char* placeholderUser = "user name";
inline constexpr const char* placeholderUnchanged = "unchanged";
inline constexpr const char* placeholderPassword = "password";
inline constexpr const char* portAlertTitle = "Port";
inline constexpr const char* portAlertTail =
    " is not a port Velmora can use: type 1024 to 65535 (the RDP port is 3389).";
}  // namespace SettingsText

class SettingsForm {
public:
    static constexpr double sliderMinimum = 25;
    static constexpr double sliderMaximum = 100;

    // `refreshMenu` is the status menu's update; everything must outlive the form. `column`: whose
    // server's support decides which controls are shown and enabled (this platform's).
    SettingsForm(platform::DefaultsStore& store, Desktop& desktop, std::shared_ptr<ServerSupervisor> supervisor,
                 std::function<void()> refreshMenu, platform::Column column = platform::column());

    // The settings the window has a control for, in the window's order; settings that mean nothing
    // to this platform's server are left out.
    std::vector<const Setting*> rows() const;
    // Whether the control is live: a setting the server does not honour yet is shown (with its stored
    // value) but disabled, with notHonoured() as its tooltip, and is never saved.
    bool enabled(const Setting& setting) const;
    std::string notHonoured() const;
    // The line under the controls when some are disabled; empty when none is.
    std::string notHonouredNote() const;
    // The Windows login's row (not a setting of the table) follows this setting's.
    static bool loginFollows(const Setting& setting);
    // The macOS window places its controls at fixed frames; elsewhere a form lays them out.
    bool fixedFrames() const { return column_ == platform::Column::mac; }

    // Every control's value from the stores; the password is always empty.
    SettingsFields fill() const;

    // Validates and stores in order. An alert ends the save (false): the window stays open with the
    // edits, and what was stored before it stays stored. Otherwise `hideWindow` runs, then a running
    // server is restarted (a stopped one stays stopped). The password is wiped from `fields` in every
    // case.
    bool save(SettingsFields& fields, const std::function<void()>& hideWindow);

    // The note under the controls (what to mind after a restart).
    static std::string note();
    // The slider's label: the value truncated toward zero, then "%".
    static std::string scaleText(double value);
    // The port field's integer reading: leading white space, an optional sign and digits; 0 when
    // there are none (saturating, never overflowing).
    static std::int64_t fieldInteger(const std::string& text);

private:
    void alert(const std::string& title, const std::string& text);

    platform::DefaultsStore& store_;
    Desktop& desktop_;
    std::shared_ptr<ServerSupervisor> supervisor_;
    std::function<void()> refreshMenu_;
    platform::Column column_;
};

// Overwrites the text's bytes before emptying it, so a password leaves nothing behind in it.
void wipeText(std::string& text);
// The same for a buffer of another kind (the toolkit's strings).
void wipeMemory(void* data, std::size_t size);

}  // namespace velmora
