// Whatever arrives in MAC_SHADOW_NLA, the SAM file written from it holds only well-formed lines:
// no extra line, no shifted field.
#include "server-linux/server_translation.h"

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace velmora::ServerHelper;
    std::string entry(reinterpret_cast<const char*>(data), size);
    auto login = parseLoginEntry(entry);
    if (!login) return 0;
    std::string text = samFileText(*login);
    std::size_t start = 0, lines = 0;
    while (start < text.size()) {
        std::size_t end = text.find('\n', start);
        if (end == std::string::npos) std::abort();  // every line ends in a line feed
        std::string line = text.substr(start, end - start);
        std::size_t colons = 0;
        for (char c : line) {
            if (static_cast<unsigned char>(c) < 0x20) std::abort();
            if (c == ':') ++colons;
        }
        if (colons != 6 || line.find(":::" + login->ntHashHex + ":::") == std::string::npos) std::abort();
        start = end + 1;
        ++lines;
    }
    if (lines < 1 || lines > 4) std::abort();
    return 0;
}
