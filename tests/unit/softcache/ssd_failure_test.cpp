// SPDX-License-Identifier: MIT
// An SSD that fails in earnest: a file cut short under the cache cannot be read, a file size limit
// makes it unwritable. The device must not notice.
#include <linux/falloc.h>

#include "tests/unit/softcache/cache_fixture.h"

namespace softcache {
namespace {

class SsdFailureTest : public CacheOnFiles {};

TEST_F(SsdFailureTest, AReadFallsBackToTheBackingAndTakesTheUnitIntoAnotherSlot) {
    Make(8 * kUnitSize, 4);
    ReadAndCheck(0, 2 * kUnitSize);
    Counted();
    ASSERT_EQ(ftruncate(ssd_.get(), kUnitSize), 0);  // the copy of unit 1 is gone
    ReadUnit(1);
    EXPECT_EQ(cache_->Counters().ssdErrors, 1u);
    EXPECT_EQ(Counted(), (Counts{0, 1, 0})) << "a read from the backing is no hit";
    EXPECT_EQ(cache_->Levels().retired, 1u);
    EXPECT_EQ(Resident(), (Units{0, 1}));
    ReadAndCheck(0, 2 * kUnitSize);
    EXPECT_EQ(Counted(), (Counts{2, 0, 0}));
}

TEST_F(SsdFailureTest, AUnitThatCannotBeStoredIsReadAllTheSame) {
    Make(8 * kUnitSize, 4);
    {
        const FileSizeLimit limit(2 * kUnitSize);
        ReadAndCheck(0, 8 * kUnitSize);
    }
    EXPECT_EQ(cache_->Counters().ssdErrors, 2u);
    EXPECT_EQ(cache_->Levels().retired, 2u) << "slots 2 and 3";
    EXPECT_EQ(Resident().size(), 2u);
    ReadAndCheck(0, 8 * kUnitSize);
    EXPECT_EQ(cache_->Levels().retired, 2u);
}

TEST_F(SsdFailureTest, AWriteSucceedsAndTheOldCopyIsNeverSeenAgain) {
    Make(8 * kUnitSize, 8);
    for (const uint32_t unit : {7u, 6u, 5u, 4u, 3u, 2u, 1u, 0u}) {
        ReadUnit(unit);  // 0 comes to lie in the last slot, where only the SSD meets the limit
    }
    {
        const FileSizeLimit limit(7 * kUnitSize);
        WriteAndRemember(100, RandomBytes(1000, 5));
        WriteAndRemember(kUnitSize, RandomBytes(1000, 6));
    }
    EXPECT_EQ(cache_->Counters().ssdErrors, 1u);
    EXPECT_EQ(Resident(), (Units{1, 2, 3, 4, 5, 6, 7}));
    ReadAndCheck(0, 8 * kUnitSize);
    EXPECT_EQ(FileBytes(dir_ / "backing"), content_);
}

TEST_F(SsdFailureTest, AHoleIsNoLongerCoveredByTheOldCopy) {
    Make(8 * kUnitSize, 8);
    for (const uint32_t unit : {7u, 6u, 5u, 4u, 3u, 2u, 1u, 0u}) {
        ReadUnit(unit);
    }
    {
        const FileSizeLimit limit(7 * kUnitSize);
        ASSERT_EQ(cache_->Allocate(FALLOC_FL_PUNCH_HOLE | FALLOC_FL_KEEP_SIZE, 0, 4096), 0);
    }
    std::fill_n(content_.begin(), 4096, uint8_t{0});
    EXPECT_EQ(Resident(), (Units{1, 2, 3, 4, 5, 6, 7}));
    ReadAndCheck(0, 8 * kUnitSize);
}

TEST_F(SsdFailureTest, APinnedUnitIsDroppedTooAndComesBack) {
    Make(8 * kUnitSize, 4);
    cache_->SetPins(Bitmap(1, {0}));
    ReadUnit(0);
    ASSERT_EQ(ftruncate(ssd_.get(), 0), 0);
    ReadUnit(0);
    EXPECT_EQ(Resident(), Units{0});
    EXPECT_EQ(cache_->Levels().pinnedResident, 1u);
    EXPECT_EQ(cache_->Levels().retired, 1u);
}

TEST_F(SsdFailureTest, WithoutAnySlotLeftEverythingPassesBy) {
    Make(8 * kUnitSize, 2);
    {
        const FileSizeLimit limit(1);
        ReadAndCheck(0, 2 * kUnitSize);
    }
    EXPECT_EQ(cache_->Levels().retired, 2u);
    Counted();
    ReadAndCheck(0, 8 * kUnitSize);
    WriteAndRemember(5, RandomBytes(3 * kUnitSize, 7));
    ReadAndCheck(0, 8 * kUnitSize);
    EXPECT_EQ(Counted(), (Counts{0, 0, 16}));
    EXPECT_EQ(FileBytes(dir_ / "backing"), content_);
}

}  // namespace
}  // namespace softcache
