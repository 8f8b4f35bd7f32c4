// SPDX-License-Identifier: MIT
// A BlockCache on two real files, for tests that want to look at all three.
#pragma once

#include <memory>

#include "softcache/core/block_cache.h"
#include "tests/unit/softcache/test_files.h"

namespace softcache {

class CacheOnFiles : public ::testing::Test {
  protected:
    // A device of random bytes and a cold cache of `slots` units.
    void Make(uint64_t deviceSize, uint32_t slots) {
        content_ = RandomBytes(static_cast<size_t>(deviceSize), 1);
        backing_ = NewFile(dir_ / "backing", content_);
        ssd_ = NewFile(dir_ / "ssd", {});
        store_ = std::make_unique<SsdStore>(Disk(ssd_.get()));
        const uint64_t bytes = SsdBytesFor(deviceSize, slots);
        ASSERT_EQ(ftruncate(ssd_.get(), static_cast<off_t>(bytes)), 0);
        ASSERT_EQ(store_->Format({"vol1", "", dir_ / "backing"}, deviceSize, slots, 0), 0);
        cache_ = std::make_unique<BlockCache>(Disk(backing_.get()), *store_, Warm());
    }

    static uint64_t SsdBytesFor(uint64_t deviceSize, uint32_t slots) {
        SsdHead head;
        head.pinsRoom = PinsRoomFor(deviceSize);
        head.slots = slots;
        return SsdBytes(head);
    }

    // A start on the files as they are now.
    void StartAgain() {
        cache_.reset();
        store_ = std::make_unique<SsdStore>(Disk(ssd_.get()));
        ASSERT_EQ(store_->Load(), 1);
        const Warm warm = Recover();
        cache_ = std::make_unique<BlockCache>(Disk(backing_.get()), *store_, warm);
    }

    using Warm = std::vector<WarmSlot>;
    Warm Recover() {
        Warm warm;
        report_ = RecoveryReport();
        EXPECT_EQ(RecoverTable(*store_, store_->Head().deviceSize, warm, report_), 0);
        return warm;
    }

    // The first byte of a slot on the SSD.
    uint64_t Slot(uint32_t slot) const { return SlotStart(store_->Head(), slot); }

    // Reads and compares with what the device must hold.
    void ReadAndCheck(uint64_t offset, size_t size) {
        Bytes got(size, 0xEE);
        ASSERT_EQ(cache_->Read(got.data(), size, offset), 0) << offset << "+" << size;
        const Bytes expected(content_.begin() + static_cast<ptrdiff_t>(offset),
                             content_.begin() + static_cast<ptrdiff_t>(offset + size));
        ASSERT_TRUE(got == expected) << offset << "+" << size;
    }

    void ReadUnit(uint32_t unit) { ReadAndCheck(uint64_t{unit} * kUnitSize, 512); }

    void WriteAndRemember(uint64_t offset, const Bytes& bytes) {
        ASSERT_EQ(cache_->Write(bytes.data(), bytes.size(), offset), 0);
        std::copy(bytes.begin(), bytes.end(), content_.begin() + static_cast<ptrdiff_t>(offset));
    }

    std::vector<uint32_t> Resident() { return BitsSet(cache_->ResidentBitmap()); }

    // {hits, misses, bypasses} since the last call.
    std::vector<uint64_t> Counted() {
        const CacheCounters counters = cache_->Counters();
        cache_->ResetCounters();
        return {counters.hits, counters.misses, counters.bypasses};
    }

    TempDir dir_;
    Bytes content_;
    OwnedFd backing_;
    OwnedFd ssd_;
    std::unique_ptr<SsdStore> store_;
    RecoveryReport report_;
    std::unique_ptr<BlockCache> cache_;
};

using Units = std::vector<uint32_t>;
using Counts = std::vector<uint64_t>;

}  // namespace softcache
