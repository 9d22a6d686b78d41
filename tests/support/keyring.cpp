#include "support/keyring.h"

#include "platform/credential_store.h"

#include <cstdlib>
#include <sys/stat.h>

namespace velmora::test {

bool keyringAvailable(std::string& why) {
    // Only the private keyring of scripts/with-test-keyring.sh: tests write and delete the Windows
    // login, which in a desktop session would be the developer's own.
    const char* session = std::getenv("VELMORA_TEST_KEYRING");
    struct stat info{};
    if (!session || ::stat(session, &info) != 0 || !S_ISDIR(info.st_mode) || !std::getenv("DBUS_SESSION_BUS_ADDRESS")) {
        why = "no private test keyring: run the tests through scripts/with-test-keyring.sh";
        return false;
    }
    // A harmless round trip on an item of our own proves the keyring is there and unlocked.
    int status = platform::addSecret("com.velmora.test", "probe", "x");
    platform::deleteSecret("com.velmora.test", "probe");
    if (status != platform::secretSuccess) {
        why = "the keyring did not answer (status " + std::to_string(status) + ")";
        return false;
    }
    return true;
}

}  // namespace velmora::test
