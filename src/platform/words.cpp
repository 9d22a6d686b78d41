#include "platform/words.h"

namespace velmora::platform {

std::string say(const Words& words) { return say(words, column()); }

std::string say(const Words& words, Column column) {
    return column == Column::x11 && words.x11 ? words.x11 : words.mac;
}

}  // namespace velmora::platform
