#include "core/environment.h"

#include <cstdlib>
#include <cstring>

extern char** environ;

namespace velmora {

Environment processEnvironment() {
    Environment result;
    for (char** entry = environ; entry && *entry; ++entry) {
        const char* text = *entry;
        const char* equals = std::strchr(text, '=');
        if (!equals || equals == text) continue;
        result.emplace(std::string(text, equals), std::string(equals + 1));
    }
    return result;
}

std::optional<std::string> environmentValue(const char* name) {
    const char* value = std::getenv(name);
    if (!value) return std::nullopt;
    return std::string(value);
}

}  // namespace velmora
