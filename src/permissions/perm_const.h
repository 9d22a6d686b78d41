#pragma once
// The fixed names and numbers of the permission subsystem.

#include "core/server_contract.h"

namespace velmora::PermConst {

// The helper application, whose privacy entries are the ones that count.
inline constexpr const char* helperBundleID = "com.velmora.shadow";
// The tray application itself, under which older versions held the permissions.
inline constexpr const char* legacyBundleID = "com.velmora.app";
// Passed to the server in probe mode, so a probe never collides with the real server's port.
inline constexpr int probePort = Contract::Probe::port;
inline constexpr const char* screenService = "ScreenCapture";
inline constexpr const char* inputService = "Accessibility";

}  // namespace velmora::PermConst
