// Any log text: redaction finishes, yields valid UTF-8, and applying it twice changes nothing more.
#include "core/text.h"
#include "netcheck/diagnostics.h"

#include <cstdint>
#include <cstdlib>
#include <string_view>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    std::string once = velmora::Diagnostics::redact(std::string_view(reinterpret_cast<const char*>(data), size));
    if (!velmora::text::isValidUtf8(once)) std::abort();
    if (velmora::Diagnostics::redact(once) != once) std::abort();
    return 0;
}
