#pragma once
// The settings window without its widgets: what every control shows when the window opens (read
// afresh from the defaults store and the keyring) and what "Save and Restart" does with what the
// controls hold (validate, store, hide, restart a running server). The Qt window only binds its
// controls to SettingsFields. Main thread only.

#include "app/app_view.h"
#include "platform/defaults_store.h"

#include <array>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>

namespace velmora {

class ServerSupervisor;

// The controls' values. Pop-ups hold the selected item's index (-1: none selected); the slider
// holds the percentage (25 to 100, not rounded).
struct SettingsFields {
    std::string port;
    double scale = 75;
    int fps = -1;
    int bitrate = -1;
    int maxSize = 0;
    int maxWidth = 0;
    int remoteScreen = 0;
    bool cursor = false;
    bool auth = false;
    bool ctrl = false;
    bool avc = false;
    bool audio = false;
    bool clipboard = false;
    bool hwenc = false;
    std::string nlaUser;
    std::string nlaPass;
    // Shown only.
    std::string nlaPassPlaceholder;
    std::string nlaStatus;
};

// A pop-up item: its title and the integer stored for it.
struct SettingsChoice {
    const char* title;
    std::int64_t value;
};

namespace SettingsChoices {
inline constexpr std::array<SettingsChoice, 4> fps{{{"15", 15}, {"24", 24}, {"30", 30}, {"60", 60}}};
inline constexpr std::array<SettingsChoice, 4> bitrate{
    {{"5 Mbit/s", 5}, {"10 Mbit/s", 10}, {"20 Mbit/s", 20}, {"40 Mbit/s", 40}}};
inline constexpr std::array<SettingsChoice, 3> maxSize{
    {{"1080p (recommended)", 2073600}, {"1440p", 3686400}, {"4K", 8294400}}};
inline constexpr std::array<SettingsChoice, 4> maxWidth{
    {{"Automatic", 0}, {"4096 px", 4096}, {"5120 px", 5120}, {"7680 px", 7680}}};
}  // namespace SettingsChoices

namespace SettingsText {
inline constexpr const char* windowTitle = "Velmora Settings";
inline constexpr const char* loginSet = "Set. Clear the user name to remove it; type a password to change it.";
inline constexpr const char* loginNotSet =
    "Not set: Windows clients get TLS only and must send a Mac account password.";
inline constexpr const char* placeholderUnchanged = "unchanged";
inline constexpr const char* placeholderPassword = "password";
inline constexpr const char* portAlertTitle = "Port";
inline constexpr const char* portAlertTail =
    " is not a port Velmora can use: type 1024 to 65535 (the RDP port is 3389).";
}  // namespace SettingsText

class SettingsForm {
public:
    // `refreshMenu` is the status menu's update; everything must outlive the form.
    SettingsForm(platform::DefaultsStore& store, Desktop& desktop, std::shared_ptr<ServerSupervisor> supervisor,
                 std::function<void()> refreshMenu);

    // Every control's value from the stores; the password is always empty.
    SettingsFields fill() const;

    // Validates and stores in order. An alert ends the save (false): the window stays open with the
    // edits, and what was stored before it stays stored. Otherwise `hideWindow` runs, then a running
    // server is restarted (a stopped one stays stopped). The password is wiped from `fields` in every
    // case.
    bool save(SettingsFields& fields, const std::function<void()>& hideWindow);

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
};

// Overwrites the text's bytes before emptying it, so a password leaves nothing behind in it.
void wipeText(std::string& text);
// The same for a buffer of another kind (the toolkit's strings).
void wipeMemory(void* data, std::size_t size);

}  // namespace velmora
