// SPDX-License-Identifier: MIT
#include "softcache/core/block_cache.h"

#include <linux/falloc.h>

#include <numeric>

#include "tests/unit/softcache/cache_fixture.h"

namespace softcache {
namespace {

class BlockCacheTest : public CacheOnFiles {};

TEST_F(BlockCacheTest, AReadTakesInTheWholeUnitAndTheNextOneHits) {
    Make(8 * kUnitSize, 4);
    ReadAndCheck(kUnitSize + 100, 512);
    EXPECT_EQ(Counted(), (Counts{0, 1, 0}));
    EXPECT_EQ(Resident(), Units{1});

    // Served from the SSD: what the backing says no longer matters.
    const Bytes scrambled(kUnitSize, 0);
    ASSERT_EQ(WriteFull(backing_.get(), scrambled.data(), scrambled.size(), kUnitSize), 0);
    ReadAndCheck(kUnitSize, kUnitSize);
    EXPECT_EQ(Counted(), (Counts{1, 0, 0}));
}

TEST_F(BlockCacheTest, CountsEveryUnitThatAReadTouches) {
    Make(8 * kUnitSize, 8);
    ReadAndCheck(kUnitSize - 1, 2);
    EXPECT_EQ(Counted(), (Counts{0, 2, 0}));
    ReadAndCheck(0, 4 * kUnitSize);
    EXPECT_EQ(Counted(), (Counts{2, 2, 0}));
    ReadAndCheck(0, 0);
    EXPECT_EQ(cache_->Counters().reads, 1u);
    EXPECT_EQ(Counted(), (Counts{0, 0, 0}));
}

TEST_F(BlockCacheTest, AReadLongerThanTheCacheMakesRoomForItself) {
    Make(8 * kUnitSize, 2);
    ReadAndCheck(0, 8 * kUnitSize);
    EXPECT_EQ(Counted(), (Counts{0, 8, 0}));
    EXPECT_EQ(Resident(), (Units{6, 7}));
}

TEST_F(BlockCacheTest, AWriteReachesTheBackingAndTheCopyOfAResidentUnit) {
    Make(4 * kUnitSize, 4);
    ReadUnit(0);
    ReadUnit(1);
    WriteAndRemember(kUnitSize - 700, RandomBytes(1400, 2));
    EXPECT_EQ(FileBytes(dir_ / "backing"), content_);
    Counted();
    ReadAndCheck(0, 2 * kUnitSize);
    EXPECT_EQ(Counted(), (Counts{2, 0, 0}));
}

TEST_F(BlockCacheTest, AWriteBringsNoUnitIn) {
    Make(4 * kUnitSize, 4);
    WriteAndRemember(10, RandomBytes(100, 2));
    WriteAndRemember(kUnitSize, RandomBytes(kUnitSize, 3));
    EXPECT_EQ(Resident(), Units{});
    EXPECT_EQ(cache_->Counters().writes, 2u);
    EXPECT_EQ(cache_->Counters().misses, 0u);
    ReadAndCheck(0, 4 * kUnitSize);
}

TEST_F(BlockCacheTest, AWriteIsAUse) {
    Make(8 * kUnitSize, 2);
    ReadUnit(0);
    ReadUnit(1);
    WriteAndRemember(0, RandomBytes(512, 2));
    ReadUnit(2);
    EXPECT_EQ(Resident(), (Units{0, 2}));
}

TEST_F(BlockCacheTest, PinnedUnitsSurviveAFloodOfTenTimesTheCache) {
    constexpr uint32_t kSlots = 16;
    constexpr uint32_t kUnits = kSlots * 11;
    Make(uint64_t{kUnits} * kUnitSize, kSlots);
    const Units pinned = {3, 4, 5, 40, 41, 100, 101, 102};
    cache_->SetPins(Bitmap(cache_->MaxPinBytes(), pinned));
    for (const uint32_t unit : pinned) {
        ReadUnit(unit);
    }
    for (uint32_t unit = 0; unit < kUnits; ++unit) {
        if (std::find(pinned.begin(), pinned.end(), unit) == pinned.end()) {
            ReadUnit(unit);
        }
    }
    EXPECT_EQ(Counted(), (Counts{0, kUnits, 0}));
    const Units resident = Resident();
    EXPECT_EQ(resident.size(), kSlots);
    EXPECT_TRUE(std::includes(resident.begin(), resident.end(), pinned.begin(), pinned.end()));
    EXPECT_EQ(cache_->Levels().pinnedResident, pinned.size());
    for (const uint32_t unit : pinned) {
        ReadAndCheck(uint64_t{unit} * kUnitSize, kUnitSize);
    }
    EXPECT_EQ(Counted(), (Counts{pinned.size(), 0, 0}));
}

TEST_F(BlockCacheTest, ABitmapPinsWhatIsResidentAlready) {
    Make(16 * kUnitSize, 2);
    ReadUnit(0);
    cache_->SetPins(Bitmap(2, {0}));
    for (uint32_t unit = 1; unit < 16; ++unit) {
        ReadUnit(unit);
    }
    EXPECT_EQ(Resident(), (Units{0, 15}));
    cache_->SetPins({});
    ReadUnit(3);
    EXPECT_EQ(Resident(), (Units{3, 15}));
}

TEST_F(BlockCacheTest, WhenEverythingIsPinnedReadsPassBy) {
    Make(16 * kUnitSize, 2);
    cache_->SetPins(Bitmap(2, {0, 1, 2, 3}));
    ReadUnit(0);
    ReadUnit(1);
    Counted();
    ReadUnit(2);                            // pinned too, but there is no slot left
    ReadAndCheck(5 * kUnitSize + 7, 1000);  // not pinned
    EXPECT_EQ(Counted(), (Counts{0, 0, 2}));
    EXPECT_EQ(Resident(), (Units{0, 1}));
    EXPECT_EQ(cache_->Levels().pinned, 4u);
    EXPECT_EQ(cache_->Levels().pinnedResident, 2u);

    WriteAndRemember(5 * kUnitSize, RandomBytes(kUnitSize, 4));
    ReadAndCheck(5 * kUnitSize, kUnitSize);
    ReadUnit(0);
    EXPECT_EQ(Counted(), (Counts{1, 0, 1}));
}

TEST_F(BlockCacheTest, TheShortLastUnitIsCachedAsFarAsItGoes) {
    const uint64_t size = 2 * kUnitSize + 1234;
    Make(size, 3);
    EXPECT_EQ(cache_->Levels().units, 3u);
    ReadAndCheck(size - 10, 10);
    ReadAndCheck(2 * kUnitSize, 1234);
    EXPECT_EQ(Counted(), (Counts{1, 1, 0}));
    WriteAndRemember(size - 1000, RandomBytes(1000, 5));
    ReadAndCheck(2 * kUnitSize, 1234);
    EXPECT_EQ(Counted(), (Counts{1, 0, 0}));
    EXPECT_EQ(FileBytes(dir_ / "backing"), content_) << "neither shorter nor longer";
    EXPECT_EQ(BitsSet(cache_->ResidentBitmap()), Units{2});
}

TEST_F(BlockCacheTest, ADeviceTailUnder512KiBHasNoPinBits) {
    Make((1 << 19) + 3 * kUnitSize, 4);
    EXPECT_EQ(cache_->MaxPinBytes(), 1u);
    cache_->SetPins(Bytes(1, 0xFF));
    EXPECT_EQ(cache_->Levels().pinned, 8u);
    ReadUnit(9);  // in the tail: resident, but an ordinary unit
    EXPECT_EQ(cache_->Levels().pinnedResident, 0u);
    EXPECT_EQ(cache_->ResidentBitmap().size(), 2u) << "every unit has a bit here";
}

TEST_F(BlockCacheTest, ADeviceOfOneByte) {
    Make(1, 1);
    EXPECT_EQ(cache_->MaxPinBytes(), 0u);
    ReadAndCheck(0, 1);
    WriteAndRemember(0, {42});
    ReadAndCheck(0, 1);
    EXPECT_EQ(Counted(), (Counts{1, 1, 0}));
}

TEST_F(BlockCacheTest, ABackingThatCannotReadFailsTheReadAndTakesNothingIn) {
    Make(4 * kUnitSize, 4);
    ReadUnit(0);
    ASSERT_EQ(ftruncate(backing_.get(), kUnitSize + 10), 0);
    Bytes buffer(kUnitSize);
    EXPECT_EQ(cache_->Read(buffer.data(), 512, 2 * kUnitSize), -EIO);
    EXPECT_EQ(cache_->Read(buffer.data(), 5, kUnitSize), -EIO) << "the unit as a whole";
    EXPECT_EQ(Resident(), Units{0});
    ReadUnit(0);

    // Everything is as it was once the backing can read again.
    ASSERT_EQ(WriteFull(backing_.get(), content_.data(), content_.size(), 0), 0);
    ReadAndCheck(0, 4 * kUnitSize);
    EXPECT_EQ(Resident(), (Units{0, 1, 2, 3}));
}

TEST_F(BlockCacheTest, ABackingThatCannotWriteFailsTheWriteAndDropsTheCopies) {
    Make(4 * kUnitSize, 4);
    ReadAndCheck(0, 4 * kUnitSize);
    const Bytes bytes = RandomBytes(2 * kUnitSize, 6);
    {
        const FileSizeLimit limit(2 * kUnitSize);
        EXPECT_EQ(cache_->Write(bytes.data(), bytes.size(), kUnitSize), -EFBIG);
    }
    EXPECT_EQ(Resident(), (Units{0, 3})) << "how far the write came is not known";
    content_ = FileBytes(dir_ / "backing");
    ReadAndCheck(0, 4 * kUnitSize);
}

TEST_F(BlockCacheTest, AHoleReadsAsZerosAndOrdinaryUnitsOfItAreDropped) {
    Make(16 * kUnitSize, 16);
    cache_->SetPins(Bitmap(2, {2}));
    ReadAndCheck(0, 6 * kUnitSize);
    const uint64_t begin = kUnitSize / 2;
    const uint64_t length = 4 * kUnitSize;  // units 1 to 3 whole, 0 and 4 in part
    ASSERT_EQ(cache_->Allocate(FALLOC_FL_PUNCH_HOLE | FALLOC_FL_KEEP_SIZE, begin, length), 0);
    std::fill_n(content_.begin() + static_cast<ptrdiff_t>(begin), length, uint8_t{0});
    EXPECT_EQ(Resident(), (Units{0, 2, 4, 5})) << "the pinned one and those of which bytes remain";
    EXPECT_EQ(FileBytes(dir_ / "backing"), content_);
    Counted();
    ReadAndCheck(0, 6 * kUnitSize);
    EXPECT_EQ(Counted(), (Counts{4, 2, 0}));
}

TEST_F(BlockCacheTest, AZeroedRangeReadsAsZeros) {
    Make(3 * kUnitSize + 99, 4);
    ReadAndCheck(0, content_.size());
    const int result = cache_->Allocate(FALLOC_FL_ZERO_RANGE, kUnitSize, 2 * kUnitSize + 99);
    if (result == -EOPNOTSUPP) {
        EXPECT_EQ(Resident(), (Units{0, 1, 2, 3})) << "a file system without it";
        ReadAndCheck(0, content_.size());
        return;
    }
    ASSERT_EQ(result, 0);
    std::fill(content_.begin() + kUnitSize, content_.end(), uint8_t{0});
    EXPECT_EQ(Resident(), Units{0}) << "the short last unit is whole, too";
    ReadAndCheck(0, content_.size());
}

TEST_F(BlockCacheTest, OtherWaysOfAllocatingAreRefusedOrChangeNothing) {
    Make(4 * kUnitSize, 4);
    ReadAndCheck(0, 4 * kUnitSize);
    EXPECT_EQ(cache_->Allocate(FALLOC_FL_COLLAPSE_RANGE, 0, kUnitSize), -EOPNOTSUPP);
    EXPECT_EQ(cache_->Allocate(FALLOC_FL_INSERT_RANGE, 0, kUnitSize), -EOPNOTSUPP);
    EXPECT_EQ(cache_->Allocate(0, 0, 0), -EINVAL);
    EXPECT_EQ(cache_->Allocate(0, 0, 4 * kUnitSize), 0);
    EXPECT_EQ(Resident(), (Units{0, 1, 2, 3}));
    EXPECT_EQ(FileBytes(dir_ / "backing"), content_);
}

TEST_F(BlockCacheTest, AfterAnOrderlyEndEverythingIsThereAgainInItsOrder) {
    Make(9 * kUnitSize, 4);
    for (const uint32_t unit : {5u, 1u, 3u, 0u, 5u}) {
        ReadUnit(unit);
    }
    WriteAndRemember(3 * kUnitSize + 5, RandomBytes(700, 2));
    cache_->Close();
    StartAgain();
    EXPECT_EQ(report_.open + report_.wrong + report_.broken, 0u);
    EXPECT_EQ(Resident(), (Units{0, 1, 3, 5}));
    for (const uint32_t unit : {0u, 1u, 3u, 5u}) {
        ReadAndCheck(uint64_t{unit} * kUnitSize, kUnitSize);
    }
    EXPECT_EQ(Counted(), (Counts{4, 0, 0}));
    StartAgain();
    ReadUnit(7);
    EXPECT_EQ(Resident(), (Units{0, 3, 5, 7})) << "1 was used longest ago";
}

TEST_F(BlockCacheTest, WithoutOneWhatIsSettledIsThereAgain) {
    Make(9 * kUnitSize, 4);
    ReadAndCheck(0, 4 * kUnitSize);
    EXPECT_EQ(cache_->Levels().unsettled, 4u);
    ASSERT_EQ(cache_->Checkpoint(), 0);
    EXPECT_EQ(cache_->Levels().unsettled, 0u);
    WriteAndRemember(2 * kUnitSize, RandomBytes(700, 2));
    EXPECT_EQ(cache_->Levels().unsettled, 1u);
    StartAgain();
    EXPECT_EQ(report_.open, 1u);
    EXPECT_EQ(Resident(), (Units{0, 1, 3}));
    ReadAndCheck(0, 4 * kUnitSize);
    StartAgain();
    EXPECT_EQ(Resident(), (Units{0, 1, 3})) << "that it was open is not forgotten by a start";
}

TEST_F(BlockCacheTest, ADeviceThatGrewKeepsTheCopiesOfItsWholeUnits) {
    Make(4 * kUnitSize + 100, 8);
    ReadAndCheck(0, 4 * kUnitSize + 100);
    cache_->Close();
    cache_.reset();
    content_.resize(6 * kUnitSize, 7);
    ASSERT_EQ(WriteFull(backing_.get(), content_.data(), content_.size(), 0), 0);
    store_ = std::make_unique<SsdStore>(Disk(ssd_.get()));
    ASSERT_EQ(store_->Load(), 1);
    ASSERT_EQ(store_->Adopt({"vol1", "", ""}, content_.size(), 8, 0), 0);
    Warm warm;
    ASSERT_EQ(RecoverTable(*store_, 4 * kUnitSize + 100, warm, report_), 0);
    cache_ = std::make_unique<BlockCache>(Disk(backing_.get()), *store_, warm);
    EXPECT_EQ(Resident(), (Units{0, 1, 2, 3}));
    EXPECT_EQ(report_.wrong, 1u);
    ReadAndCheck(0, content_.size());
}

TEST_F(BlockCacheTest, AnotherNumberOfSlotsIsAColdCacheWithThePinsItHad) {
    Make(4 * kUnitSize, 8);
    ASSERT_EQ(store_->WritePins({9}), 0);
    ReadAndCheck(0, 4 * kUnitSize);
    cache_->Close();
    cache_.reset();
    store_ = std::make_unique<SsdStore>(Disk(ssd_.get()));
    ASSERT_EQ(store_->Load(), 1);
    ASSERT_EQ(ftruncate(ssd_.get(), static_cast<off_t>(SsdBytesFor(4 * kUnitSize, 600))), 0);
    ASSERT_EQ(store_->Adopt({"vol1", "", ""}, 4 * kUnitSize, 600, 0), 0);
    cache_ = std::make_unique<BlockCache>(Disk(backing_.get()), *store_, Recover());
    EXPECT_EQ(Resident(), Units{});
    Bytes pins;
    EXPECT_EQ(store_->ReadPins(pins), 1);
    EXPECT_EQ(pins, Bytes{9});
    ReadAndCheck(0, 4 * kUnitSize);
}

TEST_F(BlockCacheTest, ManyWritesNeedFewSlotsOpenAtATime) {
    Make(2000 * kUnitSize, 1500);
    ReadAndCheck(0, 1500 * kUnitSize);
    const uint32_t tolerated = 1500 / 32;
    EXPECT_LE(cache_->Levels().unsettled, tolerated);
    for (uint32_t unit = 0; unit < 1500; ++unit) {
        WriteAndRemember(uint64_t{unit} * kUnitSize, {1, 2, 3});
        ASSERT_LE(cache_->Levels().unsettled, tolerated);
    }
    ReadAndCheck(1500 * kUnitSize, 500 * kUnitSize);  // 500 others make room
    EXPECT_LE(cache_->Levels().unsettled, tolerated + tolerated / 8 + 1);
    ASSERT_EQ(cache_->Allocate(FALLOC_FL_PUNCH_HOLE | FALLOC_FL_KEEP_SIZE, 0, content_.size()), 0);
    EXPECT_EQ(Resident(), Units{});
    std::fill(content_.begin(), content_.end(), uint8_t{0});
    StartAgain();
    ReadAndCheck(0, content_.size());
}

TEST_F(BlockCacheTest, FlushReportsWhatTheBackingSays) {
    Make(kUnitSize, 1);
    EXPECT_EQ(cache_->Flush(true), 0);
    EXPECT_EQ(cache_->Flush(false), 0);
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    const OwnedFd read(ends[0]);
    const OwnedFd write(ends[1]);
    BlockCache broken(Disk(write.get()), *store_, Warm());
    EXPECT_EQ(broken.Flush(true), -EINVAL);
}

}  // namespace
}  // namespace softcache
