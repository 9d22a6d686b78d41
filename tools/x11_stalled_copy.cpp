// velmora-stalled-copy: a program that copied text and never hands it over. It owns the CLIPBOARD
// selection of DISPLAY, says it has UTF8_STRING when asked for its TARGETS, and leaves every
// request for the text itself unanswered, so that whoever pastes waits until it gives up or goes.
// It ends when another program takes the selection, or by a signal. For the end-to-end tests.

#include <X11/Xatom.h>
#include <X11/Xlib.h>

#include <cstdio>

int main() {
    Display* display = XOpenDisplay(nullptr);
    if (!display) {
        std::fputs("velmora-stalled-copy: cannot open the display\n", stderr);
        return 1;
    }
    const Atom clipboard = XInternAtom(display, "CLIPBOARD", False);
    const Atom targets = XInternAtom(display, "TARGETS", False);
    const Atom offered[] = {targets, XInternAtom(display, "UTF8_STRING", False)};
    Window window = XCreateSimpleWindow(display, DefaultRootWindow(display), 0, 0, 1, 1, 0, 0, 0);
    XSetSelectionOwner(display, clipboard, window, CurrentTime);
    for (XEvent event; XNextEvent(display, &event) == 0;) {
        if (event.type == SelectionClear) break;
        if (event.type != SelectionRequest || event.xselectionrequest.target != targets) continue;
        const XSelectionRequestEvent& request = event.xselectionrequest;
        XChangeProperty(display, request.requestor, request.property, XA_ATOM, 32, PropModeReplace,
                        reinterpret_cast<const unsigned char*>(offered), 2);
        XEvent answer{};
        answer.xselection = {SelectionNotify, 0, True, display, request.requestor, request.selection,
                             request.target, request.property, request.time};
        XSendEvent(display, request.requestor, False, NoEventMask, &answer);
        XFlush(display);
    }
    XCloseDisplay(display);
    return 0;
}
