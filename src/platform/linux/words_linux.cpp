#include "platform/words.h"

namespace velmora::platform {

Column column() { return Column::x11; }

}  // namespace velmora::platform
