// SPDX-License-Identifier: MIT
// The bitmap against the extents of the pinned files.
#include "client/check.h"

#include <gtest/gtest.h>
#include <stdio.h>

#include <filesystem>

#include "tests/unit/client/client_test.h"
#include "tests/unit/support/fake_platform.h"

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
    unlink(gone.c_str());
    Make("new");
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
