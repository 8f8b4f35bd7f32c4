// SPDX-License-Identifier: MIT
#include "client/volume/expected_mounts.h"

#include <gtest/gtest.h>

#include "tests/unit/support/fake_files.h"
#include "tests/unit/support/unit_test.h"

namespace client {

namespace {

class ExpectedMountsTest : public UnitTest {};

TEST_F(ExpectedMountsTest, TheMountPointsOfTheTableInItsOrder) {
    RedirectPath("/etc/fstab", dir_ / "fstab");
    EXPECT_TRUE(ExpectedMounts().empty()) << "there is no table";
    WriteFile(dir_ / "fstab",
              "# a comment\n"
              "/dev/a / ext4 defaults 0 1\n"
              "/dev/b /mnt/two\\040words ext4 nofail 0 2\n"
              "/dev/c none swap sw 0 0\n"
              "UUID=x /mnt/pool1 xfs noauto 0 0");
    EXPECT_EQ(ExpectedMounts(), (std::vector<std::string>{"/", "/mnt/two words", "/mnt/pool1"}));
}

TEST_F(ExpectedMountsTest, TheLongestMountPointWithNothingMounted) {
    const std::string top = dir_.path();
    const std::vector<std::string> mountPoints = {"/", "/proc", top + "/a", top + "/a/b",
                                                  top + "/missing"};
    WriteFile(dir_ / "a", "");
    EXPECT_EQ(FindUnmounted("/proc/self/x", mountPoints), "");
    EXPECT_EQ(FindUnmounted(top + "/c", mountPoints), "");
    EXPECT_EQ(FindUnmounted(top + "/ab", mountPoints), "");
    EXPECT_EQ(FindUnmounted(top + "/a", mountPoints), top + "/a");
    EXPECT_EQ(FindUnmounted(top + "/a/b/c", mountPoints), top + "/a/b");
    EXPECT_EQ(FindUnmounted(top + "/missing/x", mountPoints), top + "/missing");
}

}  // namespace

}  // namespace client
