// SPDX-License-Identifier: MIT
#include "softcache/block_cache.h"

#include <errno.h>
#include <fcntl.h>
#include <linux/falloc.h>
#include <string.h>
#include <unistd.h>

#include <algorithm>
#include <array>

#include "softcache/file_io.h"

namespace softcache {

static uint64_t UnitStart(uint32_t unit) {
    return uint64_t{unit} * kUnitSize;
}

static uint64_t SlotStart(uint32_t slot) {
    return uint64_t{slot} * kUnitSize;
}

static uint32_t UnitAt(uint64_t offset) {
    return static_cast<uint32_t>(offset / kUnitSize);
}

BlockCache::BlockCache(int backing, int ssd, uint64_t deviceSize, uint32_t slots)
    : backing_(backing),
      ssd_(ssd),
      deviceSize_(deviceSize),
      ssdBytes_(SlotStart(slots)),
      ssdIsAllocated_(AllocatedBytes(ssd) >= ssdBytes_),
      table_(UnitAt(deviceSize - 1) + 1, slots) {}

BlockCache::Piece BlockCache::FirstPiece(uint64_t offset, uint64_t size) {
    const auto begin = static_cast<uint32_t>(offset % kUnitSize);
    const auto rest = std::min<uint64_t>(size, kUnitSize - begin);
    return {UnitAt(offset), begin, static_cast<uint32_t>(rest)};
}

// Only the device's last unit can be short.
uint32_t BlockCache::UnitLength(uint32_t unit) const {
    return static_cast<uint32_t>(std::min<uint64_t>(kUnitSize, deviceSize_ - UnitStart(unit)));
}

void BlockCache::Count(uint64_t CacheCounters::*counter) {
    const std::lock_guard<std::mutex> lock(mutex_);
    ++(counters_.*counter);
}

// After an error of the SSD nothing is believed of this slot again, whatever the next read says.
void BlockCache::GiveUp(uint32_t slot) {
    const std::lock_guard<std::mutex> lock(mutex_);
    ++counters_.ssdErrors;
    table_.Retire(slot);
}

// Whether the SSD still is what it was when the cache was made. Call it after a read and before a
// write: a file that was cut gives nothing or zeros, and writing makes it grow again. Counts and
// reports the loss once.
bool BlockCache::SsdIsWhole() {
    if (SizeOf(ssd_) >= ssdBytes_ && (!ssdIsAllocated_ || AllocatedBytes(ssd_) >= ssdBytes_)) {
        return true;
    }
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        if (ssdIsLost_) {
            return false;
        }
        ssdIsLost_ = true;
        ++counters_.ssdErrors;
        table_.RetireAll();
    }
    if (tellSsdIsLost_) {
        tellSsdIsLost_();
    }
    return false;
}

int BlockCache::Read(void* data, size_t size, uint64_t offset) {
    Count(&CacheCounters::reads);
    auto* out = static_cast<uint8_t*>(data);
    while (size > 0) {
        const Piece piece = FirstPiece(offset, size);
        // One unit at a time: a claim on the whole range would keep this request's own first units
        // from making room for its last ones.
        const UnitClaim claim(claims_, piece.unit, piece.unit);
        if (!ReadCopy(piece, out)) {
            const int result = ReadBacking(piece, out);
            if (result != 0) {
                return result;
            }
        }
        out += piece.size;
        offset += piece.size;
        size -= piece.size;
    }
    return 0;
}

// True when the unit is resident and the SSD gave its bytes.
bool BlockCache::ReadCopy(const Piece& piece, uint8_t* out) {
    uint32_t slot;
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        slot = table_.Find(piece.unit);
        if (slot == kNoSlot) {
            return false;
        }
        table_.Touch(slot);
    }
    const int result = ReadFull(ssd_, out, piece.size, SlotStart(slot) + piece.begin);
    if (!SsdIsWhole()) {
        return false;
    }
    if (result != 0) {
        GiveUp(slot);
        return false;
    }
    Count(&CacheCounters::hits);
    return true;
}

// Reads from the backing, and takes the unit in when a slot can be had.
int BlockCache::ReadBacking(const Piece& piece, uint8_t* out) {
    uint32_t slot;
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        slot = table_.TakeSlot([this](uint32_t unit) { return claims_.IsClaimed(unit); });
        ++(slot == kNoSlot ? counters_.bypasses : counters_.misses);
    }
    if (slot == kNoSlot) {
        return ReadFull(backing_, out, piece.size, UnitStart(piece.unit) + piece.begin);
    }
    return TakeIn(piece, slot, out);
}

int BlockCache::TakeIn(const Piece& piece, uint32_t slot, uint8_t* out) {
    const uint32_t length = UnitLength(piece.unit);
    std::array<uint8_t, kUnitSize> buffer;
    uint8_t* whole = piece.size == length ? out : buffer.data();
    const int result = ReadFull(backing_, whole, length, UnitStart(piece.unit));
    if (result != 0) {
        const std::lock_guard<std::mutex> lock(mutex_);
        table_.Free(slot);
        return result;
    }
    if (whole != out) {
        memcpy(out, whole + piece.begin, piece.size);
    }
    if (!SsdIsWhole()) {
        return 0;
    }
    if (WriteFull(ssd_, whole, length, SlotStart(slot)) != 0) {
        GiveUp(slot);
        return 0;
    }
    const std::lock_guard<std::mutex> lock(mutex_);
    table_.Insert(slot, piece.unit);
    return 0;
}

int BlockCache::Write(const void* data, size_t size, uint64_t offset) {
    Count(&CacheCounters::writes);
    if (size == 0) {
        return 0;
    }
    const UnitClaim claim(claims_, UnitAt(offset), UnitAt(offset + size - 1));
    const int result = WriteFull(backing_, data, size, offset);
    if (result != 0) {
        DropCopies(offset, size);  // how far the write came is not known
        return result;
    }
    const auto* bytes = static_cast<const uint8_t*>(data);
    while (size > 0) {
        const Piece piece = FirstPiece(offset, size);
        UpdateCopy(piece, bytes);
        bytes += piece.size;
        offset += piece.size;
        size -= piece.size;
    }
    return 0;
}

// Brings the copy of a resident unit up to date with the backing.
void BlockCache::UpdateCopy(const Piece& piece, const uint8_t* bytes) {
    uint32_t slot;
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        slot = table_.Find(piece.unit);
        if (slot == kNoSlot) {
            return;
        }
        table_.Touch(slot);
    }
    if (SsdIsWhole() && WriteFull(ssd_, bytes, piece.size, SlotStart(slot) + piece.begin) != 0) {
        GiveUp(slot);
    }
}

uint32_t BlockCache::NextResident(uint32_t first, uint32_t last) const {
    const std::lock_guard<std::mutex> lock(mutex_);
    return table_.NextResident(first, last);
}

void BlockCache::DropCopies(uint64_t offset, uint64_t length) {
    const uint32_t last = UnitAt(offset + length - 1);
    uint32_t unit = NextResident(UnitAt(offset), last);
    for (; unit != kNoUnit; unit = NextResident(unit + 1, last)) {
        DropCopy(unit, true);
    }
}

int BlockCache::Flush(bool dataOnly) {
    return (dataOnly ? fdatasync(backing_) : fsync(backing_)) == 0 ? 0 : -errno;
}

int BlockCache::Allocate(int mode, uint64_t offset, uint64_t length) {
    const bool zeroes = (mode & (FALLOC_FL_PUNCH_HOLE | FALLOC_FL_ZERO_RANGE)) != 0;
    if ((mode & ~(FALLOC_FL_PUNCH_HOLE | FALLOC_FL_ZERO_RANGE | FALLOC_FL_KEEP_SIZE)) != 0) {
        return -EOPNOTSUPP;
    }
    if (length == 0) {
        return -EINVAL;
    }
    const UnitClaim claim(claims_, UnitAt(offset), UnitAt(offset + length - 1));
    if (fallocate(backing_, mode, static_cast<off_t>(offset), static_cast<off_t>(length)) != 0) {
        const int error = errno;
        if (zeroes && error != EOPNOTSUPP && error != EINVAL) {
            DropCopies(offset, length);  // how far it came is not known
        }
        return -error;
    }
    if (zeroes) {
        ZeroCopies(offset, length);
    }
    return 0;
}

// The range reads as zeros now. A unit that lies in it whole holds nothing worth a slot, unless it
// is pinned; a pinned one, and one that lies in it in part, stays and is brought up to date.
void BlockCache::ZeroCopies(uint64_t offset, uint64_t length) {
    static const std::array<uint8_t, kUnitSize> zeros{};
    const uint64_t end = offset + length;
    const uint32_t last = UnitAt(end - 1);
    uint32_t unit = NextResident(UnitAt(offset), last);
    for (; unit != kNoUnit; unit = NextResident(unit + 1, last)) {
        const uint64_t from = std::max(offset, UnitStart(unit));
        const uint64_t to = std::min(end, UnitStart(unit) + UnitLength(unit));
        const bool whole = to - from == UnitLength(unit);
        if (!whole || !DropCopy(unit, false)) {
            UpdateCopy(FirstPiece(from, to - from), zeros.data());
        }
    }
}

// False when the unit is pinned and pinned ones are to stay.
bool BlockCache::DropCopy(uint32_t unit, bool pinnedToo) {
    const std::lock_guard<std::mutex> lock(mutex_);
    if (!pinnedToo && table_.IsPinned(unit)) {
        return false;
    }
    const uint32_t slot = table_.Find(unit);
    if (slot != kNoSlot) {  // the SSD may have been lost since it was found there
        table_.Free(slot);
    }
    return true;
}

}  // namespace softcache
