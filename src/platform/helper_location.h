#pragma once
// Where the server helper lives inside an installed Velmora, and the system services the permission
// repair talks to.

#include <optional>
#include <string>

namespace velmora::platform {

// The helper application inside the bundle root, when it is there
// (Linux: <prefix>/libexec/velmora; macOS: Velmora.app/Contents/Helpers/Velmora Server.app).
std::optional<std::string> helperAppPath(const std::string& bundleRoot);

// The server executable inside that helper application
// (Linux: .../libexec/velmora/velmora-server; macOS: .../Contents/MacOS/freerdp-shadow-cli).
std::string helperExecutablePath(const std::string& helperApp);

// The server executable for probes and for the server itself: KORVEN_CLI when it is set and not
// empty (a development override, used as is, not checked), else the executable inside `helperApp`;
// absent when there is neither.
std::optional<std::string> serverExecutable(const std::optional<std::string>& helperApp);

// The tool that resets the system's privacy entries of an application ("/usr/bin/tccutil" on
// macOS); absent where the system keeps no such lists (Linux).
std::optional<std::string> privacyResetTool();

// Makes the system's application registry know `appPath`; returns the system's status, 0 for
// success. Linux keeps no such registry: nothing to do, always 0.
int registerApplication(const std::string& appPath);

}  // namespace velmora::platform
