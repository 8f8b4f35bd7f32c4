// SPDX-License-Identifier: MIT
// The bitmap against the extents of the pinned files.
#include "client/pins/check.h"

#include <gtest/gtest.h>
#include <stdio.h>

#include <filesystem>

#include "tests/unit/client/client_test.h"
#include "tests/unit/support/fake_platform.h"

namespace client {

namespace {

constexpr uint64_t kUnit = 128;  // sectors

class CheckTest : public ClientTest {
  protected:
    void List(const std::string& path, uint32_t inode) {
        state_.pinned[mount_].push_back({PathBelow(mount_, path), inode});
    }
    std::string Pinned(const std::string& relative,
                       const std::vector<std::pair<uint64_t, uint64_t>>& extents) {
        const std::string path = Make(relative);
        Place(path, extents);
        List(path, InodeOf(path));
        return path;
    }
    VolumeCheck Check() {
        volumes_ = Volumes();
        const std::vector<VolumeCheck> checks = CheckVolumes(state_, volumes_, mount_);
        EXPECT_EQ(checks.size(), 1U);
        return checks.at(0);
    }
    FileCondition ConditionOf(const VolumeCheck& check, const std::string& relative) {
        for (const FileCheck& file : check.files) {
            if (file.now.stored.relative == relative) {
                return file.condition;
            }
        }
        ADD_FAILURE() << relative << " was not checked";
        return FileCondition::kGood;
    }

    ConfigState state_;
    std::vector<Volume> volumes_;
};

TEST_F(CheckTest, WhatAgreesIsClean) {
    Pinned("a", {{0, kUnit}, {10 * kUnit, 3 * kUnit}});
    Pinned("b", {{12 * kUnit + 5, 8}});
    WriteBitmap({0, 10, 11, 12});
    const VolumeCheck check = Check();
    EXPECT_TRUE(IsClean(check));
    EXPECT_EQ(check.wanted.Count(), 4U);
    EXPECT_EQ(check.surplus.Count(), 0U);
    EXPECT_EQ(check.missing, 0U);
}

TEST_F(CheckTest, MissingBitsAreCountedByFileAndOnceByVolume) {
    Pinned("a", {{0, 4 * kUnit}});
    Pinned("b", {{3 * kUnit, 2 * kUnit}});
    Pinned("c", {{100 * kUnit, kUnit}});
    WriteBitmap({0, 1, 100});
    const VolumeCheck check = Check();
    EXPECT_FALSE(IsClean(check));
    EXPECT_EQ(ConditionOf(check, "a"), FileCondition::kMissingBits);
    EXPECT_EQ(check.files[0].missing, 2U);
    EXPECT_EQ(check.files[1].missing, 2U);
    EXPECT_EQ(ConditionOf(check, "c"), FileCondition::kGood);
    EXPECT_EQ(check.missing, 3U) << "unit 3 is shared";
}

TEST_F(CheckTest, BitsThatNoFileNeedsAreSurplus) {
    Pinned("a", {{8 * kUnit, kUnit}});
    WriteBitmap({7, 8, 9, 1023});
    const VolumeCheck check = Check();
    EXPECT_FALSE(IsClean(check));
    EXPECT_EQ(check.surplus.Count(), 3U);
    EXPECT_TRUE(check.surplus.Has(7) && check.surplus.Has(9) && check.surplus.Has(1023));
}

TEST_F(CheckTest, FilesThatAreGoneOrReplacedAreFound) {
    const std::string gone = Pinned("gone", {{0, kUnit}});
    const std::string replaced = Pinned("replaced", {{kUnit, kUnit}});
    const std::string link = Pinned("link", {{2 * kUnit, kUnit}});
    Make("new");  // before an inode is free that it could be given
    unlink(gone.c_str());
    rename((mount_ + "/new").c_str(), replaced.c_str());
    unlink(link.c_str());
    std::filesystem::create_symlink("replaced", link);
    WriteBitmap({0, 1, 2});
    const VolumeCheck check = Check();
    EXPECT_EQ(ConditionOf(check, "gone"), FileCondition::kGone);
    EXPECT_EQ(ConditionOf(check, "replaced"), FileCondition::kReplaced);
    EXPECT_EQ(ConditionOf(check, "link"), FileCondition::kReplaced);
    EXPECT_EQ(check.surplus.Count(), 3U);
    EXPECT_FALSE(IsClean(check));
}

TEST_F(CheckTest, AFileThatIsEmptyNowAgreesWithNoBits) {
    const std::string path = Make("empty", "");
    List(path, InodeOf(path));
    WriteBitmap({});
    EXPECT_TRUE(IsClean(Check()));
}

TEST_F(CheckTest, AFileThatCannotBeMappedIsSaidToBe) {
    const std::string path = Pinned("a", {{0, kUnit}});
    g_platform.mappings[InodeOf(path)][0].result = -1;
    WriteBitmap({0});
    const VolumeCheck check = Check();
    EXPECT_EQ(ConditionOf(check, "a"), FileCondition::kUnmappable);
    EXPECT_FALSE(IsClean(check));
}

TEST_F(CheckTest, WhatAQueuedRequestIsToPinIsNoSurplus) {
    const std::string path = Make("next");
    Place(path, {{5 * kUnit, kUnit}});
    state_.queue.push_back({"3", "pinFiles", mount_, "next#" + std::to_string(InodeOf(path))});
    WriteBitmap({5});
    const VolumeCheck check = Check();
    EXPECT_EQ(check.queued, 1U);
    EXPECT_EQ(check.surplus.Count(), 0U);
    EXPECT_EQ(check.missing, 0U);
    EXPECT_TRUE(IsClean(check));
}

TEST_F(CheckTest, UnitsBehindTheLastBitAreNotMissing) {
    Pinned("tail", {{1023 * kUnit, 3 * kUnit}});
    WriteBitmap({1023});
    const VolumeCheck check = Check();
    EXPECT_EQ(check.withoutBit, 2U);
    EXPECT_EQ(ConditionOf(check, "tail"), FileCondition::kGood);
    EXPECT_TRUE(IsClean(check));
}

TEST_F(CheckTest, ABitmapFileThatIsTooLongFailsEveryRequest) {
    Pinned("a", {{0, kUnit}});
    WriteFile(mount_ + "/quorcachepinfile.bitmap", "\x01" + std::string(200, '\0'));
    const VolumeCheck check = Check();
    EXPECT_TRUE(check.fileTooLong);
    EXPECT_FALSE(IsClean(check));
    WriteFile(mount_ + "/quorcachepinfile.bitmap", "\x01");
    EXPECT_TRUE(IsClean(Check())) << "a shorter one is the front of the bitmap";
}

TEST_F(CheckTest, WhatTheServiceCutAtABlankIsThereUnderItsWholeName) {
    const std::string path = Make("t/my file");
    Place(path, {{3 * kUnit, 2 * kUnit}});
    List(mount_ + "/t/my", InodeOf(path));
    WriteBitmap({3, 4, 9});
    VolumeCheck check = Check();
    EXPECT_EQ(ConditionOf(check, "t/my"), FileCondition::kOtherName);
    EXPECT_EQ(check.files[0].now.why, "lies there under another name: my file");
    EXPECT_EQ(check.files[0].units, 2U);
    EXPECT_EQ(check.surplus.Count(), 1U);

    WriteBitmap({3, 4});
    EXPECT_TRUE(IsClean(Check())) << "all that it needs is set";
    WriteBitmap({3});
    check = Check();
    EXPECT_FALSE(IsClean(check));
    EXPECT_EQ(check.files[0].missing, 1U);

    Make("t/my");
    EXPECT_EQ(ConditionOf(Check(), "t/my"), FileCondition::kOtherName)
        << "what lies at the cut name was never pinned";
}

TEST_F(CheckTest, AFileRenamedInItsDirectoryIsNotGone) {
    const std::string path = Pinned("d/a", {{kUnit, kUnit}});
    WriteBitmap({1});
    rename(path.c_str(), (mount_ + "/d/b").c_str());
    EXPECT_EQ(ConditionOf(Check(), "d/a"), FileCondition::kOtherName);
    Make("d/a");
    EXPECT_EQ(ConditionOf(Check(), "d/a"), FileCondition::kReplaced) << "a file that was rotated";
    unlink(path.c_str());
    rename((mount_ + "/d/b").c_str(), (mount_ + "/b").c_str());
    EXPECT_EQ(ConditionOf(Check(), "d/a"), FileCondition::kGone)
        << "elsewhere it is not looked for";
}

TEST_F(CheckTest, WhereItCannotBeLookedForAFileIsNotGone) {
    std::filesystem::create_symlink("loop", mount_ + "/loop");
    std::filesystem::create_symlink("/proc", mount_ + "/other");
    List(mount_ + "/loop/a", 5);
    List(mount_ + "/other/no/such/b", 6);
    List(mount_ + "/other/version", 7);
    List(mount_ + "/d/e/f", 8);
    WriteBitmap({1});
    const VolumeCheck check = Check();
    EXPECT_EQ(ConditionOf(check, "loop/a"), FileCondition::kUnmappable);
    EXPECT_EQ(ConditionOf(check, "other/no/such/b"), FileCondition::kUnmappable);
    EXPECT_EQ(ConditionOf(check, "other/version"), FileCondition::kUnmappable);
    EXPECT_EQ(ConditionOf(check, "d/e/f"), FileCondition::kGone);
    EXPECT_EQ(check.files[1].now.why, "another file system is mounted over " + mount_ + "/other");
    EXPECT_EQ(check.uncertain, "no unit is cleared while it cannot be told where loop/a lies");
}

TEST_F(CheckTest, WhatAnotherMountPathOfTheDeviceNeedsIsNoSurplus) {
    const std::string path = Pinned("a", {{0, kUnit}});
    const std::string again = mount_ + "-again";
    std::filesystem::create_directory_symlink(mount_, again);
    g_platform.AddVolume(again, "uuid-1", "/dev/ssd1", device_);
    state_.queue.push_back({"3", "reloadPinBlocks", mount_, ""});
    WriteBitmap({0, 5});
    std::vector<VolumeCheck> checks = CheckVolumes(state_, Volumes(), "");
    ASSERT_EQ(checks.size(), 1U) << "one bitmap, checked once";
    EXPECT_EQ(checks[0].mountPath, mount_);
    checks = CheckVolumes(state_, Volumes(), again);
    ASSERT_EQ(checks.size(), 1U);
    EXPECT_EQ(checks[0].surplus.Count(), 1U);
    EXPECT_TRUE(checks[0].surplus.Has(5));
    EXPECT_EQ(checks[0].queued, 1U);
    EXPECT_EQ(checks[0].mountPaths, (std::vector<std::string>{mount_, again}));
    EXPECT_EQ(checks[0].uncertain, "");

    g_platform.mappings[InodeOf(path)][0].result = -1;
    EXPECT_NE(CheckVolumes(state_, Volumes(), again).at(0).uncertain, "");
}

TEST_F(CheckTest, AMountPathThatHasAListIsCheckedWithoutTheBitmapOfAnother) {
    Pinned("a", {{0, kUnit}});
    const std::string again = mount_ + "-again";
    std::filesystem::create_directory_symlink(mount_, again);
    g_platform.AddVolume(again, "uuid-1", "/dev/ssd1", device_);
    state_.pinned[again].push_back({"gone", 1});
    WriteBitmap({0, 5});
    const std::vector<VolumeCheck> checks = CheckVolumes(state_, Volumes(), "");
    ASSERT_EQ(checks.size(), 2U);
    EXPECT_EQ(checks[0].surplus.Count(), 1U);
    EXPECT_EQ(checks[0].bitmapWith, "");
    EXPECT_EQ(checks[1].surplus.Count(), 0U);
    EXPECT_EQ(checks[1].bitmapWith, mount_);
    EXPECT_EQ(checks[1].files.at(0).condition, FileCondition::kGone);
}

TEST_F(CheckTest, WhatWasPinnedWhereTheDeviceWasMountedBeforeIsNoSurplus) {
    const std::string path = Make("a");
    Place(path, {{2 * kUnit, kUnit}});
    state_.pinned["/nowhere/pool9"] = {{"a", InodeOf(path)}, {"b", 1}};
    WriteBitmap({2, 3});
    const VolumeCheck check = Check();
    EXPECT_EQ(check.surplus.Count(), 1U);
    EXPECT_TRUE(check.surplus.Has(3));
    EXPECT_EQ(check.uncertain, "");
}

TEST_F(CheckTest, AListedVolumeThatIsNotMountedIsNotForgotten) {
    state_.pinned["/nowhere/pool9"].push_back({"a", 1});
    const std::vector<VolumeCheck> checks = CheckVolumes(state_, Volumes(), "");
    ASSERT_EQ(checks.size(), 1U);
    EXPECT_EQ(checks[0].mountPath, "/nowhere/pool9");
    EXPECT_FALSE(checks[0].mounted);
    EXPECT_FALSE(IsClean(checks[0]));
}

TEST_F(CheckTest, AVolumeWithNothingPinnedAndBitsLeftIsChecked) {
    EXPECT_TRUE(CheckVolumes(state_, Volumes(), "").empty());
    WriteBitmap({4});
    const std::vector<VolumeCheck> checks = CheckVolumes(state_, Volumes(), "");
    ASSERT_EQ(checks.size(), 1U);
    EXPECT_EQ(checks[0].surplus.Count(), 1U);
}

}  // namespace

}  // namespace client
