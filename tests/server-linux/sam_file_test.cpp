#include "server-linux/sam_file.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <string>
#include <unistd.h>

using namespace velmora;
using namespace velmora::ServerHelper;

TEST(SamFile, SealedAndNotInherited) {
    const SamLogin login{"anna", "b39a61f16a4e11fa80580241f1d4aae8"};
    SamFile sam(login);
    ASSERT_TRUE(sam.valid());
    EXPECT_EQ(::fcntl(sam.descriptor(), F_GETFD) & FD_CLOEXEC, FD_CLOEXEC);

    // Nobody may rewrite the login the server reads (which the server reads by path, once per
    // login: see the helper's process test).
    EXPECT_LT(::write(sam.descriptor(), "x", 1), 0);
}
