// SPDX-License-Identifier: MIT
// What is said to hold after requests are done.
#include "client/pins/holding.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include "tests/unit/client/pins/pins_test.h"
#include "tests/unit/support/fake_platform.h"

namespace client {

namespace {

class HoldingTest : public PinsTest {
  protected:
    void Add(const std::string& relative, const Extents& extents, bool listed) {
        files_.push_back(File(relative, extents));
        if (listed) {
            List(relative);
        }
    }
    Holding AfterPin() {
        const std::vector<Holding> holdings = HoldingAfterPin(state_, files_);
        EXPECT_EQ(holdings.size(), 1U);
        EXPECT_EQ(AllHold(holdings),
                  holdings.at(0).wrong.empty() && holdings.at(0).whyAbsent.empty());
        return holdings.at(0);
    }
    Holding AfterUnpin() {
        const std::vector<Holding> holdings = HoldingAfterUnpin(state_, files_, volumes_);
        EXPECT_EQ(holdings.size(), 1U);
        return holdings.at(0);
    }

    std::vector<FileRef> files_;
};

TEST_F(HoldingTest, APinHoldsWhenListedAndSet) {
    Add("a", {{0, 2 * kUnit}}, true);
    Add("b", {{kUnit, kUnit}}, true);
    WriteBitmap({0, 1});
    const Holding holding = AfterPin();
    EXPECT_TRUE(holding.wrong.empty());
    EXPECT_EQ(holding.files, 2U);
    EXPECT_EQ(holding.counts.units, 2U) << "the shared unit counts once";
    EXPECT_EQ(holding.counts.set, 2U);
    EXPECT_FALSE(holding.counts.cacheTells);
}

TEST_F(HoldingTest, ADroppedPinIsKnownByTheList) {
    Add("a", {{0, kUnit}}, false);
    WriteBitmap({0});
    const Holding holding = AfterPin();
    ASSERT_EQ(holding.wrong.size(), 1U);
    EXPECT_NE(holding.wrong[0].reason.find("not on the service's list"), std::string::npos);
}

TEST_F(HoldingTest, MissingBitsAndVanishedFilesAreNamed) {
    Add("a", {{0, 3 * kUnit}}, true);
    Add("b", {{10 * kUnit, kUnit}}, true);
    Add("c", {{20 * kUnit, kUnit}}, true);
    WriteBitmap({0, 10, 20});
    unlink(files_[1].path.c_str());
    const Holding holding = AfterPin();
    ASSERT_EQ(holding.wrong.size(), 2U);
    EXPECT_EQ(holding.wrong[0].path, files_[0].path);
    EXPECT_EQ(holding.wrong[0].reason, "2 units of 3 not set");
    EXPECT_EQ(holding.wrong[1].path, files_[1].path);
    EXPECT_EQ(holding.wrong[1].reason, "gone: is nowhere on its volume");
}

TEST_F(HoldingTest, TheDriversBitmapCountsWhereTheCacheTells) {
    Add("a", {{0, kUnit}}, true);
    Add("b", {{kUnit, kUnit}}, true);
    WriteBitmap({0, 1});
    LetTheCacheTell("\x01", "\x01");
    const Holding holding = AfterPin();
    EXPECT_TRUE(holding.counts.cacheTells);
    EXPECT_EQ(holding.counts.withDriver, 1U);
    EXPECT_EQ(holding.counts.resident, 1U);
    ASSERT_EQ(holding.wrong.size(), 1U);
    EXPECT_EQ(holding.wrong[0].path, files_[1].path);
}

TEST_F(HoldingTest, WhatWasPinnedAndIsNotInTheCacheIsSaidWithTheReason) {
    Add("a", {{0, 3 * kUnit}}, true);
    WriteBitmap({0, 1, 2});
    LetTheCacheTell("\x01", "\x07");
    Holding holding = AfterPin();
    EXPECT_TRUE(holding.wrong.empty());
    EXPECT_EQ(holding.absent, 2U);
    EXPECT_NE(holding.whyAbsent.find("reload reads again"), std::string::npos);

    WriteFile(mount_ + "/quorcachepinfile.bitmap", std::string(128, '\xff'));
    holding = AfterPin();
    EXPECT_EQ(holding.absent, 2U);
    EXPECT_EQ(holding.whyAbsent, "64.0 MiB are pinned, the cache holds 1.0 MiB");
    testing::internal::CaptureStdout();
    DescribeHolding(holding, "pinned").Print();
    EXPECT_EQ(testing::internal::GetCapturedStdout(),
              mount_ +
                  ": pinned 1 file, 192.0 KiB\n"
                  "  units  3, set 3, with the driver 3, in the cache 1\n"
                  "  not in the cache 2 units: 64.0 MiB are pinned, the cache holds 1.0 MiB\n");
}

TEST_F(HoldingTest, WhatWasNeverWrittenNeedNotBeInTheCache) {
    Add("a", {{0, 3 * kUnit}}, true);
    g_platform.mappings[files_[0].inode][0].entries[0].uninitialized = 1;
    WriteBitmap({0, 1, 2});
    LetTheCacheTell("", "\x07");
    EXPECT_EQ(AfterPin().absent, 0U);
}

TEST_F(HoldingTest, AnUnpinHoldsWhenTheFilesAreOffTheListAndTheirBitsClear) {
    Add("a", {{0, 2 * kUnit}}, false);
    WriteBitmap({5});
    EXPECT_TRUE(AfterUnpin().wrong.empty());
    WriteBitmap({1});
    ASSERT_EQ(AfterUnpin().wrong.size(), 1U);
    EXPECT_NE(AfterUnpin().wrong[0].reason.find("1 unit still set"), std::string::npos);
}

TEST_F(HoldingTest, AnUnpinDoesNotHoldWhileTheDriverHasItsUnits) {
    Add("kept", {{2 * kUnit, kUnit}}, true);
    files_.clear();
    Add("a", {{0, 3 * kUnit}}, false);
    WriteBitmap({2});
    LetTheCacheTell("", "\x07");
    Holding holding = AfterUnpin();
    ASSERT_EQ(holding.wrong.size(), 1U);
    EXPECT_EQ(holding.wrong[0].reason.find("2 units still with the driver"), 0U)
        << holding.wrong[0].reason;
    WriteFile(dir_ / "pinned", "\x04");
    EXPECT_TRUE(AfterUnpin().wrong.empty());
}

TEST_F(HoldingTest, AUnitThatAPinnedFileNeedsMayStaySet) {
    Add("kept", {{kUnit, kUnit}}, true);
    files_.clear();
    Add("a", {{0, 2 * kUnit}}, false);
    WriteBitmap({1});
    const Holding holding = AfterUnpin();
    EXPECT_TRUE(holding.wrong.empty());
    EXPECT_EQ(holding.counts.units, 1U) << "only the other unit should be clear";
}

TEST_F(HoldingTest, AFileThatIsStillListedIsNotUnpinned) {
    Add("a", {{0, kUnit}}, true);
    WriteBitmap({});
    ASSERT_EQ(AfterUnpin().wrong.size(), 1U);
    EXPECT_EQ(AfterUnpin().wrong[0].reason, "is still on the service's list");
}

}  // namespace

}  // namespace client
