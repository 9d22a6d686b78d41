#include "platform/words.h"

namespace velmora::platform {

std::string say(const Words& words) {
    if (column() == Column::x11 && words.x11) return words.x11;
    return words.mac;
}

}  // namespace velmora::platform
