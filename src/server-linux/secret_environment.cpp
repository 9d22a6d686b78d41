#include "server-linux/secret_environment.h"

#include <cstdlib>
#include <cstring>
#include <sys/prctl.h>
#include <vector>

extern char** environ;

namespace velmora::ServerHelper {

std::optional<std::string> takeSecretVariable(const char* name) {
    ::prctl(PR_SET_DUMPABLE, 0, 0, 0, 0);
    const std::size_t length = std::strlen(name);
    std::optional<std::string> value;
    std::vector<char*> copies;  // "NAME=value" as the environment holds it, once per definition
    for (char** entry = environ; entry && *entry; ++entry) {
        if (std::strncmp(*entry, name, length) != 0 || (*entry)[length] != '=') continue;
        if (!value) value = std::string(*entry + length + 1);
        copies.push_back(*entry);
    }
    // unsetenv matches by name, so the bytes are cleared only once the variable is out of environ.
    ::unsetenv(name);
    for (char* copy : copies) ::explicit_bzero(copy, std::strlen(copy));
    return value;
}

void wipe(std::string& text) {
    ::explicit_bzero(text.data(), text.size());
    text.clear();
}

}  // namespace velmora::ServerHelper
