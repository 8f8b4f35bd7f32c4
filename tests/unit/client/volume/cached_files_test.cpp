// SPDX-License-Identifier: MIT
// Which files have units in a set.
#include "client/volume/cached_files.h"

#include <gtest/gtest.h>

#include "tests/unit/client/client_test.h"

namespace client {

namespace {

class CachedFilesTest : public ClientTest {
  protected:
    CachedFiles Find(const UnitRuns& runs, double seconds = 60) {
        UnitSet set(128);
        set.Put(runs);
        volumes_ = Volumes();
        return FindCachedFiles(volumes_.front(), set, seconds);
    }

    std::vector<Volume> volumes_;
};

TEST_F(CachedFilesTest, TheFileWithMostComesFirst) {
    const std::string little = MakeAt("a/little", 10, 5);
    const std::string much = MakeAt("b/much", 20, 10);
    MakeAt("c/none", 40, 3);
    const CachedFiles found = Find({{14, 14}, {22, 25}, {100, 100}});
    ASSERT_EQ(found.files.size(), 2U);
    EXPECT_EQ(found.files[0].path, much);
    EXPECT_EQ(found.files[0].count, 4U);
    EXPECT_EQ(CountUnits(found.files[0].units), 10U);
    EXPECT_EQ(found.files[0].size, 1U);
    EXPECT_EQ(found.files[1].path, little);
    EXPECT_EQ(found.files[1].count, 1U);
    EXPECT_TRUE(found.units.Has(10));
    EXPECT_FALSE(found.units.Has(40)) << "of no file that counts";
    EXPECT_FALSE(found.units.Has(100));
    EXPECT_EQ(found.passedOver, 0U);
}

TEST_F(CachedFilesTest, WhatIsNotLookedAtIsCounted) {
    MakeAt("late", 10);
    const CachedFiles found = Find({{0, 100}}, -1);
    EXPECT_TRUE(found.files.empty());
    EXPECT_EQ(found.passedOver, 1U);
}

TEST_F(CachedFilesTest, WhatHasNoBlocksIsNotMapped) {
    Make("empty", "");
    EXPECT_EQ(Find({{0, 100}}).passedOver, 0U);
}

}  // namespace

}  // namespace client
