// SPDX-License-Identifier: MIT
// Requests: reads and writes. What they leave behind on the SSD is block_cache_settle.cpp's.
#include "softcache/core/block_cache.h"

#include <errno.h>
#include <string.h>

#include <algorithm>

namespace softcache {

// A write is one operation up to this; a longer one is several.
constexpr size_t kMostBytesAtOnce = 1 << 20;

BlockCache::BlockCache(const Disk& backing, SsdStore& store, const std::vector<WarmSlot>& warm)
    : backing_(backing),
      store_(store),
      deviceSize_(store.Head().deviceSize),
      seed_(store.Head().tableSeed),
      ssdBytes_(SsdBytes(store.Head())),
      ssdIsAllocated_(store.Ssd().Allocated() >= ssdBytes_),
      tolerated_(std::clamp<size_t>(store.Head().slots / 32, 8, kMostOpen / 2)),
      table_(UnitAt(deviceSize_ - 1) + 1, store.Head().slots) {
    for (const WarmSlot& slot : warm) {
        table_.Restore(slot.slot, slot.unit, slot.lastUse);
    }
}

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
    const OpenSlots open(*this,
                         {slot});  // its unit may change from now on, and the slot with it not
    const std::lock_guard<std::mutex> lock(mutex_);
    ++counters_.ssdErrors;
    table_.Retire(slot);
}

// Whether the SSD still is what it was when the cache was made. Call it after a read and before a
// write: a file that was cut gives nothing or zeros, and writing makes it grow again.
bool BlockCache::SsdIsWhole() {
    const Disk& ssd = store_.Ssd();
    if (ssd.Size() >= ssdBytes_ && (!ssdIsAllocated_ || ssd.Allocated() >= ssdBytes_)) {
        return true;
    }
    Lock lock(mutex_);
    LoseSsd(lock, "was cut or lost space");
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
    const int result =
        store_.Ssd().Read(out, piece.size, SlotStart(store_.Head(), slot) + piece.begin);
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
    const uint32_t slot = TakeSlot();
    if (slot == kNoSlot) {
        return ReadBackingBytes(out, piece.size, UnitStart(piece.unit) + piece.begin);
    }
    const int result = TakeIn(piece, slot, out);
    Leave({slot});
    return result;
}

int BlockCache::ReadBackingBytes(void* data, size_t size, uint64_t offset) {
    if (beforeBackingRead_) {
        beforeBackingRead_();
    }
    return backing_.Read(data, size, offset);
}

int BlockCache::TakeIn(const Piece& piece, uint32_t slot, uint8_t* out) {
    static thread_local const AlignedBytes buffer = AllocateAligned(kUnitSize);
    const uint32_t length = UnitLength(piece.unit);
    const int result = ReadBackingBytes(buffer.get(), length, UnitStart(piece.unit));
    if (result != 0) {
        const std::lock_guard<std::mutex> lock(mutex_);
        table_.Free(slot);
        return result;
    }
    memcpy(out, buffer.get() + piece.begin, piece.size);
    if (!SsdIsWhole()) {
        return 0;
    }
    if (store_.Ssd().Write(buffer.get(), length, SlotStart(store_.Head(), slot)) != 0) {
        GiveUp(slot);
        return 0;
    }
    const std::lock_guard<std::mutex> lock(mutex_);
    table_.Insert(slot, piece.unit);
    return 0;
}

int BlockCache::Write(const void* data, size_t size, uint64_t offset) {
    Count(&CacheCounters::writes);
    const auto* bytes = static_cast<const uint8_t*>(data);
    while (size > 0) {
        const size_t part = std::min(size, kMostBytesAtOnce);
        const int result = WriteUnits(bytes, part, offset);
        if (result != 0) {
            return result;
        }
        bytes += part;
        offset += part;
        size -= part;
    }
    return 0;
}

int BlockCache::WriteUnits(const uint8_t* data, size_t size, uint64_t offset) {
    const UnitClaim claim(claims_, UnitAt(offset), UnitAt(offset + size - 1));
    const OpenSlots open(*this, SlotsOf(offset, size));
    const int result = backing_.Write(data, size, offset);
    BackingHasChanged();
    if (result != 0) {
        DropCopies(offset, size);  // how far the write came is not known
        return result;
    }
    while (size > 0) {
        const Piece piece = FirstPiece(offset, size);
        UpdateCopy(piece, data);
        data += piece.size;
        offset += piece.size;
        size -= piece.size;
    }
    return 0;
}

// Brings the copy of a resident unit, whose slot is open, up to date with the backing.
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
    const uint64_t place = SlotStart(store_.Head(), slot) + piece.begin;
    if (SsdIsWhole() && store_.Ssd().Write(bytes, piece.size, place) != 0) {
        GiveUp(slot);
    }
}

std::vector<uint32_t> BlockCache::ResidentIn(uint64_t offset, uint64_t length) const {
    const std::lock_guard<std::mutex> lock(mutex_);
    return table_.ResidentIn(UnitAt(offset), UnitAt(offset + length - 1));
}

void BlockCache::DropCopies(uint64_t offset, uint64_t length) {
    for (const uint32_t unit : ResidentIn(offset, length)) {
        DropCopy(unit, true);
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
