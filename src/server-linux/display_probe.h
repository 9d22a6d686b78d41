#pragma once
// The permission probe on X11: the screen is readable when the display opens and a 1x1 image of
// the root window can be read; input can be sent when the XTEST extension is present. When either
// is missing, the cause says why, in the words of Contract::Probe::Cause.

#include "core/environment.h"

#include <string>
#include <string_view>

namespace velmora::ServerHelper {

struct DisplayAccess {
    bool screen = false;
    bool input = false;
    std::string_view cause;  // empty when both are granted
};

// What the environment says about the session: a Wayland one (XDG_SESSION_TYPE=wayland or
// WAYLAND_DISPLAY set), where XWayland lets nobody read the screen.
bool waylandSession(const Environment& environment);

// Why a permission is missing, from what the probe found; empty when nothing is. On a Wayland
// session an unreadable screen is Wayland's doing, whatever else failed on the way.
std::string_view probeCause(bool hasDisplay, bool opened, const DisplayAccess& access, bool wayland);

// `display` is the X display name (DISPLAY); empty means there is none, which grants nothing.
DisplayAccess probeDisplay(const std::string& display, bool wayland);

}  // namespace velmora::ServerHelper
