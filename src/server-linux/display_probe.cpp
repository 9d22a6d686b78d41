#include "server-linux/display_probe.h"

#include "core/server_contract.h"

#include <X11/Xlib.h>
#include <X11/Xutil.h>
#include <X11/extensions/XTest.h>

namespace velmora::ServerHelper {

namespace {

namespace Cause = Contract::Probe::Cause;

// Xlib reports protocol errors through a global handler that ends the process by default; a
// refused GetImage must instead count as "no screen".
int ignoreError(Display*, XErrorEvent*) { return 0; }

}  // namespace

bool waylandSession(const Environment& environment) {
    auto type = environment.find("XDG_SESSION_TYPE");
    auto display = environment.find("WAYLAND_DISPLAY");
    return (type != environment.end() && type->second == "wayland") ||
           (display != environment.end() && !display->second.empty());
}

std::string_view probeCause(bool hasDisplay, bool opened, const DisplayAccess& access, bool wayland) {
    if (!access.screen && wayland) return Cause::wayland;
    if (!hasDisplay) return Cause::noDisplay;
    if (!opened) return Cause::displayRefused;
    if (!access.screen) return Cause::screenUnreadable;
    if (!access.input) return Cause::noXtest;
    return {};
}

DisplayAccess probeDisplay(const std::string& display, bool wayland) {
    DisplayAccess access;
    Display* connection = display.empty() ? nullptr : XOpenDisplay(display.c_str());
    if (connection) {
        auto previous = XSetErrorHandler(ignoreError);
        XImage* image = XGetImage(connection, DefaultRootWindow(connection), 0, 0, 1, 1, AllPlanes, ZPixmap);
        if (image) {
            access.screen = true;
            XDestroyImage(image);
        }
        int eventBase = 0, errorBase = 0, major = 0, minor = 0;
        access.input = XTestQueryExtension(connection, &eventBase, &errorBase, &major, &minor) == True;
        XSync(connection, False);
        XSetErrorHandler(previous);
        XCloseDisplay(connection);
    }
    access.cause = probeCause(!display.empty(), connection != nullptr, access, wayland);
    return access;
}

}  // namespace velmora::ServerHelper
