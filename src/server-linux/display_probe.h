#pragma once
// The permission probe on X11: the screen is readable when the display opens and a 1x1 image of
// the root window can be read; input can be sent when the XTEST extension is present.

#include <string>

namespace velmora::ServerHelper {

struct DisplayAccess {
    bool screen = false;
    bool input = false;
};

// `display` is the X display name (DISPLAY); empty means there is none, which grants nothing.
DisplayAccess probeDisplay(const std::string& display);

}  // namespace velmora::ServerHelper
