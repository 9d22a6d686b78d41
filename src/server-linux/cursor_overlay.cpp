#include "server-linux/cursor_overlay.h"

#include <X11/Xlib.h>
#include <X11/extensions/Xfixes.h>

#include <algorithm>
#include <cstring>

namespace velmora::ServerHelper {

PixelRect unite(const PixelRect& a, const PixelRect& b) {
    if (a.empty()) return b;
    if (b.empty()) return a;
    return {std::min(a.left, b.left), std::min(a.top, b.top), std::max(a.right, b.right),
            std::max(a.bottom, b.bottom)};
}

std::unique_ptr<PointerSource> PointerSource::open(const char* displayName) {
    Display* display = displayName ? XOpenDisplay(displayName) : nullptr;
    if (!display) return nullptr;
    int eventBase = 0, errorBase = 0;
    if (!XFixesQueryExtension(display, &eventBase, &errorBase)) {
        XCloseDisplay(display);
        return nullptr;
    }
    return std::make_unique<PointerSource>(display);
}

PointerSource::~PointerSource() { XCloseDisplay(display_); }

std::optional<PointerImage> PointerSource::query() {
    XFixesCursorImage* cursor = XFixesGetCursorImage(display_);
    if (!cursor) return std::nullopt;
    PointerImage image;
    image.left = cursor->x - cursor->xhot;
    image.top = cursor->y - cursor->yhot;
    image.width = cursor->width;
    image.height = cursor->height;
    image.serial = cursor->cursor_serial;
    // Xlib hands the 32-bit pixels over in unsigned longs.
    image.argb.assign(cursor->pixels, cursor->pixels + static_cast<std::size_t>(cursor->width) * cursor->height);
    XFree(cursor);
    return image;
}

PixelRect PointerOverlay::draw(std::uint8_t* image, int stride, int width, int height, const PointerImage& pointer) {
    PixelRect area{std::max(pointer.left, 0), std::max(pointer.top, 0), std::min(pointer.left + pointer.width, width),
                   std::min(pointer.top + pointer.height, height)};
    if (area.empty() || pointer.argb.size() < static_cast<std::size_t>(pointer.width) * pointer.height) return {};
    const auto rowBytes = static_cast<std::size_t>(area.right - area.left) * 4;
    beneath_.resize(rowBytes * static_cast<std::size_t>(area.bottom - area.top));
    for (int y = area.top; y < area.bottom; ++y) {
        std::uint8_t* row = image + static_cast<std::ptrdiff_t>(y) * stride + area.left * 4;
        std::memcpy(beneath_.data() + static_cast<std::size_t>(y - area.top) * rowBytes, row, rowBytes);
        for (int x = area.left; x < area.right; ++x) {
            std::uint32_t pixel =
                pointer.argb[static_cast<std::size_t>(y - pointer.top) * pointer.width + (x - pointer.left)];
            const std::uint32_t alpha = pixel >> 24;
            std::uint8_t* target = image + static_cast<std::ptrdiff_t>(y) * stride + x * 4;
            for (int channel = 0; channel < 3; ++channel) {  // B, G, R: premultiplied source over target
                const std::uint32_t source = (pixel >> (8 * channel)) & 0xff;
                target[channel] = static_cast<std::uint8_t>(
                    std::min<std::uint32_t>(255, source + (target[channel] * (255 - alpha) + 127) / 255));
            }
        }
    }
    drawn_ = area;
    return area;
}

PixelRect PointerOverlay::restore(std::uint8_t* image, int stride) {
    PixelRect area = drawn_;
    if (area.empty()) return {};
    const auto rowBytes = static_cast<std::size_t>(area.right - area.left) * 4;
    for (int y = area.top; y < area.bottom; ++y)
        std::memcpy(image + static_cast<std::ptrdiff_t>(y) * stride + area.left * 4,
                    beneath_.data() + static_cast<std::size_t>(y - area.top) * rowBytes, rowBytes);
    drawn_ = {};
    return area;
}

}  // namespace velmora::ServerHelper
