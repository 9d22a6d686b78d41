#pragma once
// Facts about this machine and its system that reports and the usage ping mention.

#include <string>

namespace velmora::platform {

// The operating system's version as one line of text (Linux: PRETTY_NAME of /etc/os-release and
// the kernel release; macOS: the process information's version string).
std::string osVersionString();

// The hardware model (Linux: /sys/class/dmi/id/product_name; macOS: sysctl hw.model); empty when
// it cannot be read.
std::string modelName();

// The machine's stable identifier (Linux: /etc/machine-id; macOS: IOPlatformUUID), or "unknown".
std::string platformUUID();

// Whether addresses of the network interface `name` are shown first: the ones a client on the
// network reaches (macOS: en0, en1 ...; Linux: interfaces backed by a device, those with
// <classNet>/<name>/device: Ethernet, Wi-Fi), not bridges, Docker's or VPN tunnels. `classNet`
// is Linux's /sys/class/net, another folder in tests.
bool isPhysicalInterface(const std::string& name, const std::string& classNet = "/sys/class/net");

// Whether a window system can be reached to show the tray icon and windows on (Linux: DISPLAY,
// WAYLAND_DISPLAY or an explicit Qt platform; macOS: always).
bool graphicalSessionAvailable();

// Whether this is a Wayland session (Linux: XDG_SESSION_TYPE is "wayland" or WAYLAND_DISPLAY is
// set), whose screen an X11 server cannot share; never on macOS.
bool waylandSession();

// The program that lists open network connections (lsof).
std::string connectionListerPath();

}  // namespace velmora::platform
