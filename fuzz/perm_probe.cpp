// parsePermProbe reads whatever the server printed: it must never crash, and any answer it gives
// must come from a line of the exact form.

#include "permissions/perm_probe.h"

#include <cstdint>
#include <cstdlib>
#include <string>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    std::string output(reinterpret_cast<const char*>(data), size);
    auto status = velmora::parsePermProbe(output);
    if (status) {
        // An answer needs both keys somewhere in the text.
        if (output.find("screen=") == std::string::npos || output.find("input=") == std::string::npos) std::abort();
        // Appending a qualifying line must make that line the answer.
        auto last = velmora::parsePermProbe(output + "\nscreen=0 input=1\n");
        if (!last || last->screen || !last->input) std::abort();
    }
    return 0;
}
