#include "server-linux/display_probe.h"

#include <X11/Xlib.h>
#include <X11/Xutil.h>
#include <X11/extensions/XTest.h>

namespace velmora::ServerHelper {

namespace {

// Xlib reports protocol errors through a global handler that ends the process by default; a
// refused GetImage must instead count as "no screen".
int ignoreError(Display*, XErrorEvent*) { return 0; }

}  // namespace

DisplayAccess probeDisplay(const std::string& display) {
    DisplayAccess access;
    if (display.empty()) return access;
    Display* connection = XOpenDisplay(display.c_str());
    if (!connection) return access;
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
    return access;
}

}  // namespace velmora::ServerHelper
