#pragma once
// User-perceived characters, as the system's own text services count them: ICU's extended
// grapheme clusters on Linux, Core Foundation's composed character sequences on macOS (which needs
// no ICU of its own).

#include <cstddef>
#include <string_view>

namespace velmora::platform {

// How many user-perceived characters the UTF-8 `text` holds: "e" with a combining accent, a flag
// and a joined emoji count once each.
std::size_t characterCount(std::string_view text);

}  // namespace velmora::platform
