#include "platform/words.h"

namespace velmora::platform {

Column column() { return Column::mac; }

}  // namespace velmora::platform
