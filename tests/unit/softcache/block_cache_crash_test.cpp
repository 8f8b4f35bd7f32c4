// SPDX-License-Identifier: MIT
// The cache against a loss of power at every write: whatever subset of the sectors that were not
// synced is lost, of the SSD and of the backing, the next start reads what the backing has. Where
// only the process goes, nothing is lost but what was not settled.
//
// QUOR_CRASH_POINTS=10000 tries so many moments instead of a few hundred.
#include <linux/falloc.h>

#include "tests/unit/softcache/cache_fixture.h"
#include "tests/unit/softcache/power_loss.h"

namespace softcache {
namespace {

constexpr uint64_t kDeviceSize = 14 * uint64_t{kUnitSize} + 9 * 512;
constexpr uint32_t kSlots = 5;
constexpr int kOperations = 30;  // between two starts

// What was so when so many disk events had happened.
struct Moment {
    size_t events;
    Bytes pinsBefore;  // the bitmap of the last request that was answered
    Bytes pinsAsked;   // that of the one after it, if one is under way
    std::vector<uint32_t> resident;
    uint32_t unsettled;
};

class CrashTest : public CacheOnFiles {
  protected:
    void SetUp() override {
        Make(kDeviceSize, kSlots);
        cache_.reset();
        images_ = {FileBytes(dir_ / "backing"), FileBytes(dir_ / "ssd")};
        checkedBacking_ = NewFile(dir_ / "backing2", images_[0]);
        checkedSsd_ = NewFile(dir_ / "ssd2", images_[1]);
    }

    void TearDown() override { WatchDisks({}); }

    uint64_t Below(uint64_t bound) {
        return std::uniform_int_distribution<uint64_t>(0, bound - 1)(random_);
    }

    static void Put(const OwnedFd& file, const Bytes& bytes) {
        ASSERT_EQ(WriteFull(file.get(), bytes.data(), bytes.size(), 0), 0);
    }

    // Starts on the images, and works until there are kOperations.
    void Run() {
        Put(backing_, images_[0]);
        Put(ssd_, images_[1]);
        content_ = images_[0];
        moments_.clear();
        WatchDisks({backing_.get(), ssd_.get()});
        ASSERT_NO_FATAL_FAILURE(Start());
        for (int i = 0; i < kOperations; ++i) {
            Remember();
            ASSERT_NO_FATAL_FAILURE(Step());
            ASSERT_EQ(cache_->Levels().retired, 0u);
        }
        Remember();
        events_ = TakeDiskEvents();
        WatchDisks({});
        cache_.reset();
    }

    void Start() {
        StartAgain();
        ASSERT_EQ(store_->ReadPins(pins_), 1);
        cache_->SetPins(pins_);
    }

    void Remember() {
        const Bytes pins = pins_;
        moments_.push_back({DiskEventsSoFar(), pins, pins, Resident(), cache_->Levels().unsettled});
    }

    void Step() {
        uint64_t offset = Below(kDeviceSize / 512) * 512;
        auto size = static_cast<size_t>(512 * (1 + Below(Below(3) == 0 ? 300 : 8)));
        if (Below(4) == 0) {
            ++offset;  // sectors are torn in their midst too, where nobody promised otherwise
        }
        size = static_cast<size_t>(std::min<uint64_t>(size, kDeviceSize - offset));
        const uint64_t what = Below(100);
        if (what < 45) {
            ReadAndCheck(offset, size);
        } else if (what < 75) {
            WriteAndRemember(offset, RandomBytes(size, static_cast<uint32_t>(random_())));
        } else if (what < 80) {
            const int mode = FALLOC_FL_PUNCH_HOLE | FALLOC_FL_KEEP_SIZE;
            ASSERT_EQ(cache_->Allocate(mode, offset, size), 0);
            std::fill_n(content_.begin() + static_cast<ptrdiff_t>(offset), size, uint8_t{0});
        } else if (what < 85) {
            Pin();
        } else if (what < 95) {
            ASSERT_EQ(cache_->Checkpoint(), 0);
        } else if (what < 97) {
            ASSERT_EQ(cache_->Flush(true), 0);
        } else {
            cache_->Close();
            ASSERT_NO_FATAL_FAILURE(Start());
        }
    }

    void Pin() {
        const Bytes bitmap = {static_cast<uint8_t>(random_() & random_() & random_())};
        moments_.back().pinsAsked = bitmap;
        ASSERT_EQ(store_->WritePins(bitmap), 0);
        cache_->SetPins(bitmap);
        pins_ = bitmap;
    }

    // Every moment of the run just made, at most `most` of them. One of them is where the next run
    // begins.
    int CrashEverywhere(int most) {
        FragileDisk disks[] = {FragileDisk(images_[0]), FragileDisk(images_[1])};
        const auto next = static_cast<size_t>(Below(events_.size()));
        std::array<Bytes, 2> nextImages;
        int tried = 0;
        size_t moment = 0;
        for (size_t i = 0; i < events_.size() && !HasFatalFailure(); ++i) {
            while (moment + 1 < moments_.size() && moments_[moment + 1].events <= i) {
                ++moment;
            }
            disks[events_[i].disk].Apply(events_[i]);
            static const double kKept[] = {0, 0.5, 0.5, 0.9, 1};
            const double kept = kKept[Below(std::size(kKept))];
            std::array<Bytes, 2> left = {disks[0].AfterLoss(kept, random_),
                                         disks[1].AfterLoss(kept, random_)};
            if (tried < most) {
                SCOPED_TRACE("after event " + std::to_string(i) + ", kept " + std::to_string(kept));
                Check(left, moments_[moment], kept == 1);
                ++tried;
            }
            if (i == next) {
                nextImages = std::move(left);
            }
        }
        images_ = std::move(nextImages);
        return tried;
    }

    void Check(const std::array<Bytes, 2>& left, const Moment& moment, bool onlyTheProcess) {
        Put(checkedBacking_, left[0]);
        Put(checkedSsd_, left[1]);
        SsdStore store{Disk(checkedSsd_.get())};
        ASSERT_EQ(store.Load(), 1);
        Bytes pins;
        ASSERT_EQ(store.ReadPins(pins), 1);
        ASSERT_TRUE(pins == moment.pinsBefore || pins == moment.pinsAsked);
        Warm warm;
        RecoveryReport report;
        ASSERT_EQ(RecoverTable(store, store.Head().deviceSize, warm, report), 0);
        BlockCache cache(Disk(checkedBacking_.get()), store, warm);
        cache.SetPins(pins);
        believed_ += warm.size();
        if (onlyTheProcess) {
            // The operation under way touches a few more than were unsettled before it.
            const size_t there = cache.Levels().resident;
            EXPECT_GE(there + moment.unsettled + kSlots, moment.resident.size());
        }
        Bytes got(kDeviceSize);
        for (const WarmSlot& slot : warm) {  // before others take their place
            const uint64_t offset = uint64_t{slot.unit} * kUnitSize;
            const auto size =
                static_cast<size_t>(std::min<uint64_t>(kUnitSize, kDeviceSize - offset));
            ASSERT_EQ(cache.Read(got.data(), size, offset), 0);
            ASSERT_EQ(memcmp(got.data(), left[0].data() + offset, size), 0) << "unit " << slot.unit;
        }
        ASSERT_EQ(cache.Counters().hits, warm.size());
        ASSERT_EQ(cache.Read(got.data(), kDeviceSize, 0), 0);
        ASSERT_TRUE(got == left[0]);
    }

    std::mt19937_64 random_;
    std::array<Bytes, 2> images_;  // backing and SSD when a run begins
    std::vector<DiskEvent> events_;
    std::vector<Moment> moments_;
    Bytes pins_;
    OwnedFd checkedBacking_;
    OwnedFd checkedSsd_;
    size_t believed_ = 0;  // copies, in all
};

TEST_F(CrashTest, AStartAfterwardsReadsWhatTheBackingHas) {
    const char* wanted = getenv("QUOR_CRASH_POINTS");
    const int points = wanted == nullptr ? 500 : atoi(wanted);
    int tried = 0;
    for (uint32_t run = 0; tried < points; ++run) {
        random_.seed(run);
        SCOPED_TRACE("run " + std::to_string(run));
        ASSERT_NO_FATAL_FAILURE(Run());
        tried += CrashEverywhere(points - tried);
        ASSERT_FALSE(HasFatalFailure());
    }
    EXPECT_GE(believed_, static_cast<size_t>(tried))
        << "copies have to survive for this to mean much";
    RecordProperty("crash_points", tried);
}

}  // namespace
}  // namespace softcache
