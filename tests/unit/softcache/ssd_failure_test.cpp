// SPDX-License-Identifier: MIT
// An SSD that fails: a read meets an error, a file size limit makes it unwritable, the file is cut
// under the cache. The device must not notice.
#include <linux/falloc.h>
#include <sys/uio.h>

#include <thread>

#include "tests/unit/softcache/cache_fixture.h"

// The descriptor whose next read fails with EIO; -1 = none.
static int g_failingFd = -1;

ssize_t pread(int fd, void* data, size_t size, off_t offset) {
    if (fd == g_failingFd) {
        g_failingFd = -1;
        errno = EIO;
        return -1;
    }
    const iovec room = {data, size};
    return preadv(fd, &room, 1, offset);
}

namespace softcache {
namespace {

class SsdFailureTest : public CacheOnFiles {
  protected:
    // A cache on an SSD whose space is allocated, as the service makes it, all of it in use.
    void MakeFull(uint32_t slots) {
        Make(8 * kUnitSize, slots);
        ASSERT_EQ(fallocate(ssd_.get(), 0, 0, static_cast<off_t>(SsdBytes(store_->Head()))), 0);
        StartAgain();
        CountLosses();
        ReadAndCheck(0, uint64_t{slots} * kUnitSize);
        ASSERT_EQ(Resident().size(), slots);
        Counted();
    }

    void CountLosses() {
        cache_->WhenSsdIsLost([this](const std::string& why, bool tableIsInvalid) {
            ++told_;
            EXPECT_EQ(why, "was cut or lost space");
            EXPECT_TRUE(tableIsInvalid);
        });
    }

    void ExpectLost() {
        EXPECT_EQ(Resident(), Units{});
        EXPECT_EQ(cache_->Levels().retired, cache_->Levels().cacheUnits);
        EXPECT_EQ(cache_->Counters().ssdErrors, 1u);
        EXPECT_EQ(cache_->Counters().hits, 0u);
        EXPECT_EQ(told_, 1);
    }

    int told_ = 0;
};

TEST_F(SsdFailureTest, AReadFallsBackToTheBackingAndTakesTheUnitIntoAnotherSlot) {
    Make(8 * kUnitSize, 4);
    ReadAndCheck(0, 2 * kUnitSize);
    Counted();
    g_failingFd = ssd_.get();
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
        const FileSizeLimit limit(Slot(2));
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
        const FileSizeLimit limit(Slot(7));
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
        const FileSizeLimit limit(Slot(7));
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
    g_failingFd = ssd_.get();
    ReadUnit(0);
    EXPECT_EQ(Resident(), Units{0});
    EXPECT_EQ(cache_->Levels().pinnedResident, 1u);
    EXPECT_EQ(cache_->Levels().retired, 1u);
}

TEST_F(SsdFailureTest, WithoutAnySlotLeftEverythingPassesBy) {
    Make(8 * kUnitSize, 2);
    {
        const FileSizeLimit limit(Slot(0));
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

TEST_F(SsdFailureTest, OfAnSsdThatWasCutNoSlotIsTrusted) {
    MakeFull(8);
    ASSERT_EQ(ftruncate(ssd_.get(), static_cast<off_t>(Slot(4))), 0);
    ReadUnit(0);  // its copy is still there
    ExpectLost();
    ReadAndCheck(0, 8 * kUnitSize);
    WriteAndRemember(5, RandomBytes(3 * kUnitSize, 7));
    ReadAndCheck(0, 8 * kUnitSize);
    ExpectLost();
    EXPECT_EQ(FileBytes(dir_ / "backing"), content_);
}

TEST_F(SsdFailureTest, AnSsdThatWasCutAndGrownAgainIsLostToo) {
    MakeFull(8);
    ASSERT_EQ(ftruncate(ssd_.get(), 0), 0);
    ASSERT_EQ(ftruncate(ssd_.get(), static_cast<off_t>(Slot(8))), 0);
    ReadAndCheck(0, 8 * kUnitSize);  // zeros, were they believed
    ExpectLost();
}

TEST_F(SsdFailureTest, AHoleInTheSsdIsALossToo) {
    MakeFull(8);
    ASSERT_EQ(fallocate(ssd_.get(), FALLOC_FL_PUNCH_HOLE | FALLOC_FL_KEEP_SIZE,
                        static_cast<off_t>(Slot(3)), kUnitSize),
              0);
    ReadUnit(3);
    ExpectLost();
}

// Writing makes the file as long as it was, without what lay before the end.
TEST_F(SsdFailureTest, AWriteDoesNotHideThatTheSsdWasCut) {
    Make(8 * kUnitSize, 8);  // on an SSD without allocated space: only its size tells
    CountLosses();
    ReadAndCheck(0, 8 * kUnitSize);
    Counted();
    ASSERT_EQ(ftruncate(ssd_.get(), 0), 0);
    WriteAndRemember(7 * kUnitSize, RandomBytes(kUnitSize, 5));
    ReadAndCheck(0, 8 * kUnitSize);
    ExpectLost();
}

TEST_F(SsdFailureTest, AUnitThatIsTakenInDoesNotHideItEither) {
    Make(8 * kUnitSize, 2);
    CountLosses();
    ReadAndCheck(0, 2 * kUnitSize);
    Counted();
    ASSERT_EQ(ftruncate(ssd_.get(), 0), 0);
    ReadUnit(2);
    ExpectLost();
}

TEST_F(SsdFailureTest, ALossInTheMidstOfManyRequestsHarmsNone) {
    MakeFull(4);
    std::vector<std::thread> readers;
    for (uint32_t first = 0; first < 4; ++first) {
        readers.emplace_back([this, first] {
            for (uint32_t i = 0; i < 400; ++i) {
                ReadUnit((first + i * 3) % 8);
            }
        });
    }
    ASSERT_EQ(ftruncate(ssd_.get(), 0), 0);
    ASSERT_EQ(ftruncate(ssd_.get(), static_cast<off_t>(Slot(4))), 0);
    for (std::thread& reader : readers) {
        reader.join();
    }
    ReadAndCheck(0, 8 * kUnitSize);
    EXPECT_EQ(Resident(), Units{});
    EXPECT_EQ(cache_->Levels().retired, 4u);
    EXPECT_EQ(told_, 1);
}

}  // namespace
}  // namespace softcache
