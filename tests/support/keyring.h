#pragma once
// The tests' real keyring: a gnome-keyring-daemon, unlocked, on a private D-Bus session that the
// test command starts (scripts/with-test-keyring.sh). Tests that need it call VELMORA_REQUIRE_KEYRING().

#include <string>

namespace velmora::test {

// True when the private test keyring (VELMORA_TEST_KEYRING names its folder) is reachable; never
// the keyring of a desktop session. When it is not, the test is skipped with a note, unless the
// test command promised one (VELMORA_REQUIRE_KEYRING=1), in which case the test fails.
bool keyringAvailable(std::string& why);

}  // namespace velmora::test

#define VELMORA_REQUIRE_KEYRING()                                                \
    do {                                                                         \
        std::string why_;                                                        \
        if (!::velmora::test::keyringAvailable(why_)) {                          \
            if (std::getenv("VELMORA_REQUIRE_KEYRING")) FAIL() << why_;          \
            GTEST_SKIP() << why_;                                                \
        }                                                                        \
    } while (0)
