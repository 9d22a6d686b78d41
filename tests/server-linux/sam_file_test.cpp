#include "server-linux/sam_file.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <string>
#include <unistd.h>

using namespace velmora;
using namespace velmora::ServerHelper;

TEST(SamFile, InMemoryReadableFromTheStartSealedAndNotInherited) {
    const SamLogin login{"anna", "b39a61f16a4e11fa80580241f1d4aae8"};
    SamFile sam(login);
    ASSERT_TRUE(sam.valid());
    EXPECT_EQ(::fcntl(sam.descriptor(), F_GETFD) & FD_CLOEXEC, FD_CLOEXEC);

    // Every open by path starts at the beginning, as WinPR's per-login read needs.
    const std::string path = "/proc/self/fd/" + std::to_string(sam.descriptor());
    for (int round = 0; round < 2; ++round) {
        int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
        ASSERT_GE(fd, 0);
        std::string text(4096, '\0');
        ssize_t n = ::read(fd, text.data(), text.size());
        ::close(fd);
        ASSERT_GT(n, 0);
        text.resize(static_cast<std::size_t>(n));
        EXPECT_EQ(text, samFileText(login));
    }
    char link[256] = {};
    ASSERT_GT(::readlink(path.c_str(), link, sizeof link - 1), 0);
    EXPECT_EQ(std::string(link).rfind("/memfd:", 0), 0u) << link;
    // Nobody may rewrite the login the server reads.
    EXPECT_LT(::write(sam.descriptor(), "x", 1), 0);
}
