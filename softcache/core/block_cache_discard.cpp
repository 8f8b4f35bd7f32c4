// SPDX-License-Identifier: MIT
// Holes, zeros and allocation, and bringing to stable storage.
#include "softcache/core/block_cache.h"

#include <errno.h>
#include <fcntl.h>
#include <linux/falloc.h>
#include <unistd.h>

#include <algorithm>
#include <array>

namespace softcache {

constexpr uint64_t kMostBytesAtOnce = 1 << 30;
constexpr size_t kMostCopiesAtOnce = 64;  // that are open for one operation

int BlockCache::Allocate(int mode, uint64_t offset, uint64_t length) {
    const bool zeroes = (mode & (FALLOC_FL_PUNCH_HOLE | FALLOC_FL_ZERO_RANGE)) != 0;
    if ((mode & ~(FALLOC_FL_PUNCH_HOLE | FALLOC_FL_ZERO_RANGE | FALLOC_FL_KEEP_SIZE)) != 0) {
        return -EOPNOTSUPP;
    }
    if (length == 0) {
        return -EINVAL;
    }
    while (length > 0) {
        uint64_t part = length;
        const int result =
            zeroes ? ZeroUnits(mode, offset, part) : AllocateUnits(mode, offset, part);
        if (result != 0) {
            return result;
        }
        offset += part;
        length -= part;
    }
    return 0;
}

int BlockCache::AllocateUnits(int mode, uint64_t offset, uint64_t length) {
    return fallocate(backing_.Fd(), mode, static_cast<off_t>(offset), static_cast<off_t>(length)) ==
                   0
               ? 0
               : -errno;
}

// Makes zeros of the range's beginning, with so many copies in it as can be open at once, and cuts
// `length` down to it.
int BlockCache::ZeroUnits(int mode, uint64_t offset, uint64_t& length) {
    length = std::min(length, kMostBytesAtOnce);
    const UnitClaim claim(claims_, UnitAt(offset), UnitAt(offset + length - 1));
    const std::vector<uint32_t> units = ResidentIn(offset, length);
    if (units.size() > kMostCopiesAtOnce) {
        length = UnitStart(units[kMostCopiesAtOnce]) - offset;
    }
    const OpenSlots open(*this, SlotsOf(offset, length));
    const int result = AllocateUnits(mode, offset, length);
    if (result == 0) {
        BackingHasChanged();
        ZeroCopies(offset, length);
    } else if (result != -EOPNOTSUPP && result != -EINVAL) {
        BackingHasChanged();
        DropCopies(offset, length);  // how far it came is not known
    }
    return result;
}

// The range reads as zeros now. A unit that lies in it whole holds nothing worth a slot, unless it
// is pinned; a pinned one, and one that lies in it in part, stays and is brought up to date.
void BlockCache::ZeroCopies(uint64_t offset, uint64_t length) {
    alignas(4096) static const std::array<uint8_t, kUnitSize> zeros{};
    const uint64_t end = offset + length;
    for (const uint32_t unit : ResidentIn(offset, length)) {
        const uint64_t from = std::max(offset, UnitStart(unit));
        const uint64_t to = std::min(end, UnitStart(unit) + UnitLength(unit));
        const bool whole = to - from == UnitLength(unit);
        if (!whole || !DropCopy(unit, false)) {
            UpdateCopy(FirstPiece(from, to - from), zeros.data());
        }
    }
}

void BlockCache::BackingHasChanged() {
    const std::lock_guard<std::mutex> lock(mutex_);
    ++backingWrites_;
}

// After a failure it is not known what the backing has, so the copies that are not settled go: they
// might have more.
int BlockCache::SyncBacking(bool dataOnly) {
    uint64_t finished;
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        finished = backingWrites_;
    }
    const int result =
        (dataOnly ? fdatasync(backing_.Fd()) : fsync(backing_.Fd())) == 0 ? 0 : -errno;
    const std::lock_guard<std::mutex> lock(mutex_);
    if (result == 0) {
        syncedWrites_ = std::max(syncedWrites_, finished);
        return 0;
    }
    for (const uint32_t slot : journal_.Idle()) {
        if (table_.UnitIn(slot) != kNoUnit && !claims_.IsClaimed(table_.UnitIn(slot))) {
            table_.Free(slot);
        }
    }
    return result;
}

int BlockCache::Flush(bool dataOnly) {
    const int result = SyncBacking(dataOnly);
    const std::lock_guard<std::mutex> lock(mutex_);
    const int earlier = std::exchange(unreportedError_, 0);
    return result != 0 ? result : earlier;
}

}  // namespace softcache
