#pragma once
// The helper's own lines in the log Velmora keeps (it appends the server's standard error there):
// "velmora-server: " and the text, written in one piece so that lines from several threads never
// interleave.

#include <string>
#include <string_view>
#include <unistd.h>

namespace velmora::ServerHelper {

inline void logLine(std::string_view text) {
    std::string line = "velmora-server: ";
    line.append(text);
    line += '\n';
    ssize_t ignored = ::write(2, line.data(), line.size());
    (void)ignored;
}

}  // namespace velmora::ServerHelper
