#pragma once
// Reading the server settings from the defaults store: the registered defaults, the one legacy
// migration and the snapshot.

#include "platform/defaults_store.h"
#include "settings/server_settings.h"

#include <functional>
#include <optional>
#include <string>

namespace velmora {

// The 16 registered defaults; "remoteScreen", "virtualDisplays", "h264Profile", "h264GopSec" and
// "sizeAlign" are deliberately absent: their absence means something.
std::map<std::string, platform::DefaultsValue> registeredSettingsDefaults();

// Registers the defaults, then drops the legacy "security" key (logging when it asked for the RDP
// security that no longer exists).
void registerDefaultsAndMigrate(platform::DefaultsStore& store);

// The port when it lies in 1024...65535, else absent.
std::optional<std::int64_t> settingsPort(std::int64_t stored);

using LoginLoader = std::function<std::optional<std::string>()>;

// A fresh snapshot; `loadLogin` supplies the stored Windows-login entry (the keyring by default).
ServerSettings currentSettings(const platform::DefaultsStore& store);
ServerSettings currentSettings(const platform::DefaultsStore& store, const LoginLoader& loadLogin);

}  // namespace velmora
