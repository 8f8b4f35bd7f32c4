// SPDX-License-Identifier: MIT
#include "util/scoped.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

namespace {

TEST(ScopedTest, DescriptorZeroIsOneAndIsClosed) {
    const int kept = fcntl(STDIN_FILENO, F_DUPFD_CLOEXEC, 3);
    close(STDIN_FILENO);
    {
        const ScopedFd fd(open("/dev/null", O_RDONLY | O_CLOEXEC));
        EXPECT_EQ(fd.get(), STDIN_FILENO);
        EXPECT_TRUE(fd.valid());
    }
    EXPECT_EQ(fcntl(STDIN_FILENO, F_GETFD), -1);
    dup2(kept, STDIN_FILENO);
    close(kept);
}

TEST(ScopedTest, ANegativeDescriptorIsNone) {
    const ScopedFd fd(-1);
    EXPECT_FALSE(fd.valid());
}

}  // namespace
