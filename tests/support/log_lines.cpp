#include "support/log_lines.h"

#include "platform/app_log.h"
#include "support/temp_home.h"

#include <sstream>

namespace velmora::test {

std::vector<std::string> logMessages() {
    static const std::string tag = "] [Velmora app] ";
    std::vector<std::string> messages;
    std::istringstream lines(readFile(platform::AppLog::path()));
    for (std::string line; std::getline(lines, line);) {
        auto at = line.find(tag);
        messages.push_back(at == std::string::npos ? line : line.substr(at + tag.size()));
    }
    return messages;
}

}  // namespace velmora::test
