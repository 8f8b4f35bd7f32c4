// SPDX-License-Identifier: MIT
// The cache itself: a device whose bytes lie in a backing file, with copies of 64 KiB units on an
// SSD.
//
// The backing is the truth. A write goes there first and only then into the copy, so all copies can
// be thrown away at any moment.
//
// A read of an absent unit reads the whole unit and keeps a copy. The least recently used unit that
// is not pinned makes room; when there is none, the read bypasses the SSD. A write never brings a
// unit in, it only brings the copy of a resident one up to date.
//
// Copies outlive the process, and a loss of power. The table on the SSD says what they are, but for
// the slots that the journal names as open: before a unit with a copy changes on the backing, and
// before a copy makes room, its slot is open on the SSD. A checkpoint brings backing and copies to
// stable storage, then writes the lines of the table, and only then closes the slots. So a copy
// that is believed after a crash is what the backing has, whatever was lost of either.
//
// An error of the SSD fails no request: the copy is dropped, its slot is retired, and the backing
// answers. An SSD that became shorter, lost allocated space, or takes no heads any more counts as
// lost: all of its slots are retired, and its table is made invalid, as far as it can be written.
//
// Any number of threads may call any function. Operations on one unit run one after another, those
// on different units side by side; no lock is held during input or output.
#pragma once

#include <stddef.h>
#include <stdint.h>

#include <condition_variable>
#include <functional>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "softcache/core/unit_claims.h"
#include "softcache/store/disk.h"
#include "softcache/store/slot_journal.h"
#include "softcache/store/ssd_recovery.h"
#include "softcache/store/ssd_store.h"
#include "softcache/store/unit_table.h"

namespace softcache {

// What happened since the start or the last reset.
struct CacheCounters {
    uint64_t reads = 0;      // read requests
    uint64_t writes = 0;     // write requests
    uint64_t hits = 0;       // units read from the SSD
    uint64_t misses = 0;     // units read from the backing and taken in
    uint64_t bypasses = 0;   // units read from the backing because no slot was to be had
    uint64_t ssdErrors = 0;  // reads and writes of the SSD that failed, and its loss
};

// The state of this moment, in units.
struct CacheLevels {
    uint32_t units = 0;       // of the device, the last one may be short
    uint32_t cacheUnits = 0;  // slots on the SSD
    uint32_t resident = 0;
    uint32_t pinnedResident = 0;
    uint32_t retired = 0;    // slots given up after an error of the SSD
    uint64_t pinned = 0;     // bits set in the pin bitmap
    uint32_t unsettled = 0;  // slots that a crash now would cost at most
};

class BlockCache {
  public:
    // Device and slots are those of the store's head (1 byte to kMaxUnits units); `warm` is what
    // RecoverTable found. The store, and the backing's descriptor, outlive the cache.
    BlockCache(const Disk& backing, SsdStore& store, const std::vector<WarmSlot>& warm);

    // Sets the function to call, once, when the SSD is lost: why, the rest of a sentence that
    // begins with the SSD; and whether the table on it was made invalid. Call this before the first
    // request.
    using TellLoss = std::function<void(const std::string& why, bool tableIsInvalid)>;
    void WhenSsdIsLost(TellLoss tell) { tellSsdIsLost_ = std::move(tell); }

    // Sets a function to call before every read of the backing, without any lock held. Call this
    // before the first request.
    void BeforeBackingReads(std::function<void()> wait) { beforeBackingRead_ = std::move(wait); }

    uint64_t DeviceSize() const { return deviceSize_; }

    // Read and write whole ranges that lie on the device. Return 0, or -errno of the backing; the
    // contents of the buffer, or of the range on the device, are then undefined.
    int Read(void* data, size_t size, uint64_t offset);
    int Write(const void* data, size_t size, uint64_t offset);

    // Brings everything written so far to stable storage. Returns 0 or -errno.
    int Flush(bool dataOnly);

    // fallocate(2) of a range that lies on the device: punching a hole and zeroing a range, which
    // leave zeros, and plain allocation, which changes no byte. Returns 0 or -errno; -EOPNOTSUPP
    // for every other mode, and when the backing does not support it.
    int Allocate(int mode, uint64_t offset, uint64_t length);

    // Brings to the SSD what a crash would cost; returns 0, or -errno of the backing, and then
    // nothing was closed. It also happens by itself, when a 32nd of the slots is not settled.
    int Checkpoint();

    // Waits until a checkpoint is worth while: a moment after there is something unsettled, at once
    // when half of what is tolerated is. Returns false, at once, after StopWaiting.
    bool WaitForUnsettled();
    void StopWaiting();

    // The last call, with no other one under way: everything is on the SSD, and known again at the
    // next start, the order of use too.
    void Close();

    // The length of a full pin bitmap: one bit for each unit, except that a tail of less than
    // 512 KiB has none.
    size_t MaxPinBytes() const { return static_cast<size_t>(deviceSize_ >> 19); }

    // Replaces the pin bitmap, at most MaxPinBytes long; units beyond it are not pinned.
    void SetPins(std::vector<uint8_t> bitmap);

    // Bit b = unit b is resident, least significant bit first; one bit for every unit.
    std::vector<uint8_t> ResidentBitmap() const;

    CacheCounters Counters() const;
    CacheLevels Levels() const;
    void ResetCounters();

  private:
    // The bytes of one unit that a request touches.
    struct Piece {
        uint32_t unit;
        uint32_t begin;  // first byte within the unit
        uint32_t size;
    };
    using Lock = std::unique_lock<std::mutex>;

    // These slots, whose units the caller has claimed, are open on the SSD from construction to
    // destruction; or the SSD is lost.
    class OpenSlots {
      public:
        OpenSlots(BlockCache& cache, std::vector<uint32_t> slots)
            : cache_(cache), slots_(std::move(slots)) {
            cache_.Open(slots_);
        }
        ~OpenSlots() { cache_.Leave(slots_); }
        OpenSlots(const OpenSlots&) = delete;
        OpenSlots& operator=(const OpenSlots&) = delete;

      private:
        BlockCache& cache_;
        const std::vector<uint32_t> slots_;
    };

    static Piece FirstPiece(uint64_t offset, uint64_t size);
    uint32_t UnitLength(uint32_t unit) const;
    bool ReadCopy(const Piece& piece, uint8_t* out);
    int ReadBacking(const Piece& piece, uint8_t* out);
    int ReadBackingBytes(void* data, size_t size, uint64_t offset);
    int TakeIn(const Piece& piece, uint32_t slot, uint8_t* out);
    int WriteUnits(const uint8_t* data, size_t size, uint64_t offset);
    void UpdateCopy(const Piece& piece, const uint8_t* bytes);
    int AllocateUnits(int mode, uint64_t offset, uint64_t length);
    int ZeroUnits(int mode, uint64_t offset, uint64_t& length);
    void ZeroCopies(uint64_t offset, uint64_t length);
    std::vector<uint32_t> ResidentIn(uint64_t offset, uint64_t length) const;
    void DropCopies(uint64_t offset, uint64_t length);
    bool DropCopy(uint32_t unit, bool pinnedToo);
    void GiveUp(uint32_t slot);
    bool SsdIsWhole();
    void Count(uint64_t CacheCounters::*counter);
    void BackingHasChanged();
    int SyncBacking(bool dataOnly);

    std::vector<uint32_t> SlotsOf(uint64_t offset, uint64_t length) const;
    void Open(const std::vector<uint32_t>& slots);
    void Leave(const std::vector<uint32_t>& slots);
    uint32_t TakeSlot();
    void MakeRoomInJournal(Lock& lock, size_t notes);
    void WriteNotes(Lock& lock, uint64_t note);
    int RunCheckpoint(Lock& lock);
    int SyncBoth(Lock& lock);
    void WriteLines(Lock& lock, const std::vector<uint32_t>& slots);
    std::vector<TableEntry> Lines(uint32_t first, uint32_t count) const;
    void LoseSsd(Lock& lock, const std::string& why);

    const Disk backing_;
    SsdStore& store_;
    const uint64_t deviceSize_;
    const uint32_t seed_;        // of the table, for as long as it is valid
    const uint64_t ssdBytes_;    // that the cache takes
    const bool ssdIsAllocated_;  // all of them had space when the cache was made
    const size_t tolerated_;     // slots that may be unsettled
    TellLoss tellSsdIsLost_;
    std::function<void()> beforeBackingRead_;
    UnitClaims claims_;
    mutable std::mutex mutex_;  // guards what follows; claims_ may be asked under it
    UnitTable table_;
    SlotJournal journal_;
    CacheCounters counters_;
    std::condition_variable changed_;  // of what follows
    bool writingHead_ = false;
    bool inCheckpoint_ = false;
    bool noWaiting_ = false;
    bool ssdIsLost_ = false;
    bool tableIsInvalid_ = false;  // or cannot be made so; after ssdIsLost_
    uint64_t backingWrites_ = 0;   // finished
    uint64_t syncedWrites_ = 0;    // of them, on stable storage
    int unreportedError_ = 0;      // of a sync that nobody asked for
};

}  // namespace softcache
