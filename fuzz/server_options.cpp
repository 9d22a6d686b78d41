// Whatever arrives in MAC_SHADOW_NLA and the arguments, velmora-server reads a login that formats
// back to itself (never a name with a colon or a control character) and options within their ranges.
#include "core/text.h"
#include "server-linux/server_options.h"

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace velmora;
    using namespace velmora::ServerHelper;
    std::string input(reinterpret_cast<const char*>(data), size);
    if (auto login = parseLoginEntry(input)) {
        if (login->user.empty() || login->user.find_first_not_of(' ') == std::string::npos) std::abort();
        for (char c : login->user)
            if (c == ':' || static_cast<unsigned char>(c) < 0x20) std::abort();
        auto again = parseLoginEntry(login->user + ":" + text::hex(login->ntHash.data(), login->ntHash.size()));
        if (!again || !(*again == *login)) std::abort();
    }
    auto arguments = text::split(input, '\n');
    ServerOptions options = parseOptions(arguments, {{"MAC_SHADOW_FPS", input}, {"MAC_SHADOW_BITRATE_MBPS", input}});
    if (options.port < 1 || options.port > 65535 || options.fps < 1 || options.fps > 60 || options.bitrateMbps < 1 ||
        options.bitrateMbps > 100 || options.maxConnections < 1)
        std::abort();
    return 0;
}
