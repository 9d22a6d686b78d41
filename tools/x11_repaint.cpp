// velmora-repaint: a desktop that changes N times a second, for the server's end-to-end tests and
// benchmark. It maps a WxH window at X,Y (no window manager needed) and repaints it in
// alternating colours on a fixed schedule until it is ended by a signal.
//   velmora-repaint [rate=60] [width=256] [height=256] [x=0] [y=0]   (DISPLAY names the display)

#include <X11/Xlib.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <thread>

int main(int argc, char** argv) {
    auto argument = [&](int index, int fallback) { return argc > index ? std::atoi(argv[index]) : fallback; };
    const int rate = argument(1, 60), width = argument(2, 256), height = argument(3, 256);
    Display* display = XOpenDisplay(nullptr);
    if (!display || rate < 1 || width < 1 || height < 1) {
        std::fputs("velmora-repaint: cannot open the display, or a bad argument\n", stderr);
        return 1;
    }
    XSetWindowAttributes attributes{};
    attributes.override_redirect = True;
    Window window = XCreateWindow(display, DefaultRootWindow(display), argument(4, 0), argument(5, 0),
                                  static_cast<unsigned>(width), static_cast<unsigned>(height), 0, CopyFromParent,
                                  InputOutput, CopyFromParent, CWOverrideRedirect, &attributes);
    XMapRaised(display, window);
    GC gc = XCreateGC(display, window, 0, nullptr);
    const auto period = std::chrono::nanoseconds(1000000000 / rate);
    auto next = std::chrono::steady_clock::now();
    for (unsigned long frame = 0;; ++frame) {
        // A moving bar over a changing background: every frame differs from the last.
        XSetForeground(display, gc, (frame & 1) ? 0x2060c0 : 0xc06020);
        XFillRectangle(display, window, gc, 0, 0, static_cast<unsigned>(width), static_cast<unsigned>(height));
        XSetForeground(display, gc, 0xffffff);
        XFillRectangle(display, window, gc, static_cast<int>(frame % static_cast<unsigned long>(width)), 0, 8,
                       static_cast<unsigned>(height));
        XSync(display, False);
        next += period;
        std::this_thread::sleep_until(next);
    }
}
