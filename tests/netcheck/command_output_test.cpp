#include "platform/command_output.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <unistd.h>

namespace velmora {
namespace {

TEST(CommandOutput, CollectsStandardOutputOnlyAndPassesNoOtherDescriptors) {
    EXPECT_EQ(platform::commandOutput("/bin/echo", {"-n", "a b", "c"}), "a b c");
    EXPECT_EQ(platform::commandOutput("/bin/sh", {"-c", "echo out; echo err >&2; exit 3"}), "out\n");
    EXPECT_EQ(platform::commandOutput("/bin/sh", {"-c", "read line; echo \"[$line]\""}), "[]\n");  // stdin is empty
    EXPECT_FALSE(platform::commandOutput("/nonexistent/lsof", {}).has_value());

    // A descriptor this process left inheritable does not reach the child.
    int leaked = ::open("/dev/null", O_RDONLY);
    ASSERT_GE(leaked, 3);
    auto seen = platform::commandOutput("/bin/sh", {"-c", "[ -e /proc/self/fd/" + std::to_string(leaked) + " ] && echo open || echo closed"});
    ::close(leaked);
    EXPECT_EQ(seen, "closed\n");
}

}  // namespace
}  // namespace velmora
