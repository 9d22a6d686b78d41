#include "support/keyring.h"

#include "platform/credential_store.h"

#include <cstdlib>

namespace velmora::test {

bool keyringAvailable(std::string& why) {
    // Only the private keyring of scripts/with-test-keyring.sh: a desktop's own session (or the
    // Keychain on a Mac) holds the user's real Windows login under the same names.
    if (!std::getenv("VELMORA_KEYRING_SESSION") || !std::getenv("DBUS_SESSION_BUS_ADDRESS")) {
        why = "no D-Bus session: run the tests through scripts/test.sh, which starts a private keyring";
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
