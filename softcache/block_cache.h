// SPDX-License-Identifier: MIT
// The cache itself: a device whose bytes lie in a backing file, with copies of 64 KiB units on an
// SSD.
//
// The backing is the truth. A write goes there first and only then into the copy, so all copies can
// be thrown away at any moment, and are: a new BlockCache starts cold.
//
// A read of an absent unit reads the whole unit and keeps a copy. The least recently used unit that
// is not pinned makes room; when there is none, the read bypasses the SSD. A write never brings a
// unit in, it only brings the copy of a resident one up to date.
//
// An error of the SSD fails no request: the copy is dropped, its slot is retired, and the backing
// answers. An SSD that became shorter, or lost allocated space, was changed from outside: it counts
// as lost, and all of its slots are retired.
//
// Any number of threads may call any function. Operations on one unit run one after another, those
// on different units side by side; no lock is held during input or output.
#pragma once

#include <stddef.h>
#include <stdint.h>

#include <functional>
#include <mutex>
#include <utility>
#include <vector>

#include "softcache/unit_claims.h"
#include "softcache/unit_table.h"

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
    uint32_t retired = 0;  // slots given up after an error of the SSD
    uint64_t pinned = 0;   // bits set in the pin bitmap
};

class BlockCache {
  public:
    // The descriptors stay the caller's and outlive the cache. `deviceSize` bytes of the backing
    // are the device (1 byte to kMaxUnits units); the SSD holds `slots` units from offset 0.
    BlockCache(int backing, int ssd, uint64_t deviceSize, uint32_t slots);

    // Sets the function to call, once, when the SSD is lost. Call this before the first request.
    void WhenSsdIsLost(std::function<void()> tell) { tellSsdIsLost_ = std::move(tell); }

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

    static Piece FirstPiece(uint64_t offset, uint64_t size);
    uint32_t UnitLength(uint32_t unit) const;
    bool ReadCopy(const Piece& piece, uint8_t* out);
    int ReadBacking(const Piece& piece, uint8_t* out);
    int TakeIn(const Piece& piece, uint32_t slot, uint8_t* out);
    void UpdateCopy(const Piece& piece, const uint8_t* bytes);
    uint32_t NextResident(uint32_t first, uint32_t last) const;
    void DropCopies(uint64_t offset, uint64_t length);
    void ZeroCopies(uint64_t offset, uint64_t length);
    bool DropCopy(uint32_t unit, bool pinnedToo);
    void GiveUp(uint32_t slot);
    bool SsdIsWhole();
    void Count(uint64_t CacheCounters::*counter);

    const int backing_;
    const int ssd_;
    const uint64_t deviceSize_;
    const uint64_t ssdBytes_;    // that the slots take
    const bool ssdIsAllocated_;  // all of them had space when the cache was made
    std::function<void()> tellSsdIsLost_;
    UnitClaims claims_;
    mutable std::mutex mutex_;  // guards what follows; claims_ may be asked under it
    UnitTable table_;
    CacheCounters counters_;
    bool ssdIsLost_ = false;
};

}  // namespace softcache
