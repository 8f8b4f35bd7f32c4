// SPDX-License-Identifier: MIT
// Which bits of the bitmap file are cleared, and when none is.
#include "client/pins/sweep.h"

#include <gtest/gtest.h>
#include <stdio.h>
#include <unistd.h>

#include <filesystem>

#include "client/show/exit_status.h"
#include "client/verbs/repair.h"
#include "tests/unit/client/client_test.h"
#include "tests/unit/support/fake_platform.h"

namespace client {

namespace {

constexpr uint64_t kUnit = 128;  // sectors

class SweepTest : public QueueClientTest {
  protected:
    void SetUp() override {
        QueueClientTest::SetUp();
        if (IsSkipped()) {
            return;
        }
        MakeQueue();
        path_ = Make("a");
        Place(path_, {{8 * kUnit, 2 * kUnit}});
        WriteBitmap({7, 8, 9, 15, 100});
        List("");
    }
    // The configuration file: `path_` is pinned; `queued` is a request of the volume, or empty.
    void List(const std::string& queued) {
        const std::string requests =
            queued.empty() ? R"("requestQueue":null,"requests":null)"
                           : R"("requestQueue":["7"],"requests":{"7":)" + queued + "}";
        WriteFile(dir_ / "conf", R"({"nextRequestNum":8,)" + requests + R"(,"volumes":{")" +
                                     mount_ + R"(":{"files":{")" + std::to_string(InodeOf(path_)) +
                                     R"(":"a"}}}})");
    }
    std::string Queued(const std::string& type, const std::string& data) {
        return R"({"type":")" + type + R"(","mountPath":")" + mount_ + R"(","data":")" + data +
               R"("})";
    }
    VolumeCheck Find() {
        ConfigState state;
        std::string why;
        EXPECT_TRUE(ReadConfigState(dir_ / "conf", state, why)) << why;
        volumes_ = Volumes();
        return CheckVolumes(state, volumes_, mount_).at(0);
    }
    int Sweep(const VolumeCheck& found) { return SweepVolume(found, dir_ / "conf", 1, report_); }
    std::string Bitmap() { return ReadFile(mount_ + "/quorcachepinfile.bitmap"); }

    std::string path_;
    std::vector<Volume> volumes_;
    RepairReport report_;
};

TEST_F(SweepTest, OnlyWhatNoFileNeedsIsCleared) {
    std::string expected = Bitmap();
    expected[0] = '\0';
    expected[1] = '\x03';
    expected[12] = '\0';
    EXPECT_EQ(Sweep(Find()), kExitDone);
    EXPECT_EQ(Bitmap(), expected);
    EXPECT_EQ(report_.unitsCleared, 3U);
    ASSERT_EQ(report_.actions.size(), 1U);
    EXPECT_NE(report_.actions[0].find("3 units that no file needs cleared in "), std::string::npos);
    EXPECT_TRUE(report_.obstacles.empty());
}

TEST_F(SweepTest, WhatHasBeenPinnedSinceItWasFoundStays) {
    const VolumeCheck found = Find();
    Place(path_, {{7 * kUnit, 3 * kUnit}, {100 * kUnit, 8}});
    std::string expected = Bitmap();
    expected[1] = '\x03';
    EXPECT_EQ(found.surplus.Count(), 3U);
    EXPECT_EQ(Sweep(found), kExitDone);
    EXPECT_EQ(Bitmap(), expected);
    EXPECT_EQ(report_.unitsCleared, 1U);
}

TEST_F(SweepTest, NothingIsClearedWhileItCannotBeToldWhereAFileLies) {
    const std::string before = Bitmap();
    g_platform.mappings[InodeOf(path_)][0].result = -1;
    EXPECT_EQ(Sweep(Find()), kExitDone);
    EXPECT_EQ(Bitmap(), before);
    EXPECT_EQ(report_.unitsCleared, 0U);
    ASSERT_EQ(report_.obstacles.size(), 1U);
    EXPECT_EQ(report_.obstacles[0], "no unit is cleared while it cannot be told where a lies");
}

TEST_F(SweepTest, NothingIsClearedWhileTheVolumeHasARequest) {
    const std::string before = Bitmap();
    const VolumeCheck found = Find();
    List(Queued("reloadPinBlocks", ""));
    testing::internal::CaptureStderr();
    EXPECT_EQ(Sweep(found), kExitTimedOut);
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "quorcachepinctl: " + mount_ +
                  ": its requests did not come to an end; nothing was changed\n");
    EXPECT_EQ(Bitmap(), before);
    EXPECT_TRUE(report_.actions.empty());
}

TEST_F(SweepTest, ARequestOfAnotherMountPathOfTheDeviceIsWaitedForToo) {
    const std::string before = Bitmap();
    const std::string again = mount_ + "-again";
    std::filesystem::create_directory_symlink(mount_, again);
    g_platform.AddVolume(again, "uuid-1", "/dev/ssd1", device_);
    volumes_ = Volumes();
    const VolumeCheck found = CheckVolumes(ConfigState(), volumes_, again).at(0);
    EXPECT_EQ(found.surplus.Count(), 5U);
    List(Queued("reloadPinBlocks", ""));
    EXPECT_EQ(Sweep(found), kExitTimedOut);
    EXPECT_EQ(Bitmap(), before);
    List("");
    EXPECT_EQ(Sweep(found), kExitDone);
    EXPECT_EQ(report_.unitsCleared, 3U) << "units 8 and 9 are needed by the other mount path";
}

TEST_F(SweepTest, AVolumeWithoutSurplusIsNotWaitedFor) {
    WriteBitmap({8, 9});
    const VolumeCheck found = Find();
    List(Queued("reloadPinBlocks", ""));
    EXPECT_EQ(Sweep(found), kExitDone);
    EXPECT_TRUE(report_.actions.empty());
}

TEST_F(SweepTest, ABitmapFileThatIsALinkIsLeftAlone) {
    const VolumeCheck found = Find();
    const std::string path = mount_ + "/quorcachepinfile.bitmap";
    const std::string before = Bitmap();
    ASSERT_EQ(rename(path.c_str(), (dir_ / "elsewhere").c_str()), 0);
    ASSERT_EQ(symlink((dir_ / "elsewhere").c_str(), path.c_str()), 0);
    EXPECT_EQ(Sweep(found), kExitDone);
    EXPECT_EQ(ReadFile(dir_ / "elsewhere"), before);
    EXPECT_EQ(report_.unitsCleared, 0U);
}

}  // namespace

}  // namespace client
