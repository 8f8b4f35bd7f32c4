// SPDX-License-Identifier: MIT
// Many threads on one cache that is much too small for them.
#include <linux/falloc.h>

#include <atomic>
#include <thread>

#include "tests/unit/softcache/cache_fixture.h"

namespace softcache {
namespace {

constexpr uint32_t kUnits = 24;
constexpr uint32_t kStripe = 4096;  // every unit holds stripes of every worker
constexpr uint32_t kWorkers = 4;
constexpr int kRounds = 1500;

class BlockCacheThreadsTest : public CacheOnFiles {
  protected:
    // Works on its own stripes only, so it knows at every moment what they hold.
    void Work(uint32_t worker) {
        Random random(worker);
        for (int round = 0; round < kRounds && !wrong_; ++round) {
            const uint32_t stripe = worker + kWorkers * (random() % (StripesAll() / kWorkers));
            const uint64_t offset = uint64_t{stripe} * kStripe;
            uint8_t* mine = content_.data() + offset;
            const uint32_t what = random() % 10;
            if (what < 6) {
                Bytes got(kStripe);
                Check(cache_->Read(got.data(), kStripe, offset) == 0 &&
                      memcmp(got.data(), mine, kStripe) == 0);
            } else if (what < 9) {
                const Bytes bytes = RandomBytes(kStripe, random());
                Check(cache_->Write(bytes.data(), kStripe, offset) == 0);
                memcpy(mine, bytes.data(), kStripe);
            } else {
                const int mode = FALLOC_FL_PUNCH_HOLE | FALLOC_FL_KEEP_SIZE;
                Check(cache_->Allocate(mode, offset, kStripe) == 0);
                memset(mine, 0, kStripe);
            }
        }
    }

    // Reads across everybody's stripes; the bytes may be of any moment.
    void Sweep() {
        Bytes buffer(kUnits * kUnitSize);
        while (working_) {
            Check(cache_->Read(buffer.data(), buffer.size(), 0) == 0);
        }
    }

    void PinThisAndThat() {
        Random random(99);
        while (working_) {
            Bytes bitmap = RandomBytes(random() % (cache_->MaxPinBytes() + 1), random());
            cache_->SetPins(bitmap);
            const CacheLevels levels = cache_->Levels();
            Check(levels.pinnedResident <= levels.resident && levels.resident <= 6);
            Check(cache_->ResidentBitmap().size() == kUnits / 8);
        }
    }

    void SettleAgainAndAgain() {
        while (working_) {
            Check(cache_->Checkpoint() == 0);
            std::this_thread::yield();
        }
    }

    void Check(bool right) {
        if (!right) {
            wrong_ = true;
        }
    }

    static uint32_t StripesAll() { return kUnits * kUnitSize / kStripe; }

    std::atomic<bool> wrong_{false};
    std::atomic<bool> working_{true};
};

TEST_F(BlockCacheThreadsTest, EverybodyFindsWhatTheyWrote) {
    Make(kUnits * kUnitSize, 6);
    std::vector<std::thread> others;
    others.emplace_back([this] { Sweep(); });
    others.emplace_back([this] { PinThisAndThat(); });
    others.emplace_back([this] { SettleAgainAndAgain(); });
    std::vector<std::thread> workers;
    for (uint32_t worker = 0; worker < kWorkers; ++worker) {
        workers.emplace_back([this, worker] { Work(worker); });
    }
    for (std::thread& thread : workers) {
        thread.join();
    }
    working_ = false;
    for (std::thread& thread : others) {
        thread.join();
    }
    EXPECT_FALSE(wrong_);
    EXPECT_EQ(FileBytes(dir_ / "backing"), content_);
    const Units before = Resident();
    ASSERT_EQ(cache_->Checkpoint(), 0);
    EXPECT_EQ(cache_->Levels().unsettled, 0u);
    EXPECT_EQ(cache_->Counters().ssdErrors, 0u);
    StartAgain();
    EXPECT_EQ(Resident(), before);
    ReadAndCheck(0, content_.size());
}

TEST_F(BlockCacheThreadsTest, AUnitThatManyWantAtOnceIsReadOnce) {
    Make(4 * kUnitSize, 4);
    std::vector<std::thread> readers;
    for (int reader = 0; reader < 8; ++reader) {
        readers.emplace_back([this] {
            Bytes buffer(512);
            Check(cache_->Read(buffer.data(), buffer.size(), kUnitSize) == 0);
        });
    }
    for (std::thread& thread : readers) {
        thread.join();
    }
    EXPECT_FALSE(wrong_);
    EXPECT_EQ(Counted(), (Counts{7, 1, 0}));
}

// Every SSD write takes a while here, so a fill that ran beside the write would put back what it
// read before.
TEST_F(BlockCacheThreadsTest, AFillDoesNotBringBackWhatAWriteReplaced) {
    Make(2 * kUnitSize, 1);
    const OwnedFd slow = OpenFile(dir_ / "ssd", O_RDWR | O_DSYNC);
    SsdStore store{Disk(slow.get())};
    ASSERT_EQ(store.Load(), 1);
    cache_ = std::make_unique<BlockCache>(Disk(backing_.get()), store, Warm());
    std::thread filler([this] {
        Bytes buffer(512);
        for (uint64_t unit = 0; working_; unit = 1 - unit) {  // one slot: each read is a fill
            Check(cache_->Read(buffer.data(), buffer.size(), unit * kUnitSize) == 0);
        }
    });
    for (uint32_t round = 0; round < 200 && !wrong_; ++round) {
        const Bytes bytes = RandomBytes(kStripe, round);
        Bytes got(kStripe);
        Check(cache_->Write(bytes.data(), bytes.size(), 0) == 0);
        std::this_thread::yield();
        Check(cache_->Read(got.data(), got.size(), 0) == 0 && got == bytes);
    }
    working_ = false;
    filler.join();
    EXPECT_FALSE(wrong_);
    cache_.reset();
}

}  // namespace
}  // namespace softcache
