#include "core/files.h"

#include <fstream>
#include <iterator>

namespace velmora::files {

std::optional<std::string> readWhole(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    if (!in) return std::nullopt;
    try {
        std::string bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
        if (in.bad()) return std::nullopt;
        return bytes;
    } catch (const std::ios_base::failure&) {
        return std::nullopt;  // libstdc++ throws from the buffer on a read error (a directory, EIO)
    }
}

}  // namespace velmora::files
