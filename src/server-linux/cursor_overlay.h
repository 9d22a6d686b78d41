#pragma once
// The mouse pointer drawn into the video (MAC_SHADOW_CURSOR=1). The X server leaves the pointer
// out of captured images, so it is drawn into the shadow server's copy of the screen just before a
// frame goes out, and the pixels it covered are put back before the next capture is compared with
// that copy; otherwise every capture would differ from the copy where the pointer was drawn.

#include <cstdint>
#include <memory>
#include <optional>
#include <vector>

typedef struct _XDisplay Display;

namespace velmora::ServerHelper {

struct PixelRect {
    int left = 0, top = 0, right = 0, bottom = 0;  // right and bottom exclusive
    bool empty() const { return right <= left || bottom <= top; }
    bool operator==(const PixelRect&) const = default;
};

// Both rectangles' extent; an empty one adds nothing.
PixelRect unite(const PixelRect& a, const PixelRect& b);

struct PointerImage {
    int left = 0, top = 0;  // where its top-left pixel goes on the screen (position less hot spot)
    int width = 0, height = 0;
    std::vector<std::uint32_t> argb;  // premultiplied alpha, row by row
    unsigned long serial = 0;         // changes with the pointer's shape
    bool sameAs(const PointerImage& other) const {
        return left == other.left && top == other.top && serial == other.serial;
    }
};

// The pointer's image and position from XFIXES, on a connection of its own.
class PointerSource {
public:
    // Null when the display cannot be opened or lacks XFIXES.
    static std::unique_ptr<PointerSource> open(const char* displayName);
    explicit PointerSource(Display* display) : display_(display) {}
    ~PointerSource();
    PointerSource(const PointerSource&) = delete;
    PointerSource& operator=(const PointerSource&) = delete;
    std::optional<PointerImage> query();

private:
    Display* display_;
};

// Draws into a 32-bit BGRX image (FreeRDP's surface) and puts back what it drew over.
class PointerOverlay {
public:
    // Draws `pointer` clipped to the image, keeping the pixels beneath; returns where it drew.
    PixelRect draw(std::uint8_t* image, int stride, int width, int height, const PointerImage& pointer);
    // Puts back the pixels the last draw covered (if any); returns where.
    PixelRect restore(std::uint8_t* image, int stride);

private:
    PixelRect drawn_;
    std::vector<std::uint8_t> beneath_;
};

}  // namespace velmora::ServerHelper
