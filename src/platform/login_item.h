#pragma once
// Whether Velmora opens when the user logs in, and turning that on or off (Linux: the autostart
// entry $XDG_CONFIG_HOME/autostart/velmora.desktop; macOS: the main application's login item).

#include <optional>
#include <string>

namespace velmora::platform {

// On: Linux, the autostart entry exists and is not Hidden=true; macOS, the login item's status is
// "enabled".
bool opensAtLogin();

// Registers (on) or unregisters (off) the login item for the running program. Returns the reason
// when that failed, in words for an alert's informative text.
std::optional<std::string> setOpensAtLogin(bool on);

// Linux: where the autostart entry lives (empty when no home is known).
std::string loginItemPath();

}  // namespace velmora::platform
