// SPDX-License-Identifier: MIT
// Which unit of the device lies in which slot of the SSD, and which one goes next.
//
// Bookkeeping only: no input or output, and no locks (the caller serialises). 24 bytes a slot, and
// nothing that grows with the device.
#pragma once

#include <stddef.h>
#include <stdint.h>

#include <array>
#include <functional>
#include <vector>

namespace softcache {

constexpr uint32_t kUnitSize = 65536;       // bytes of the device that are cached as one
constexpr uint32_t kNoSlot = UINT32_MAX;    // "not resident", "no slot to be had"
constexpr uint32_t kNoUnit = UINT32_MAX;    // "no such unit"
constexpr uint32_t kMaxUnits = UINT32_MAX;  // a device is smaller than 256 TiB

// The first byte of a unit on the device, and the unit that a byte lies in.
constexpr uint64_t UnitStart(uint32_t unit) {
    return uint64_t{unit} * kUnitSize;
}
constexpr uint32_t UnitAt(uint64_t offset) {
    return static_cast<uint32_t>(offset / kUnitSize);
}

class UnitTable {
  public:
    // A device of `units` units, a cache of `slots` free slots.
    UnitTable(uint32_t units, uint32_t slots);

    // The slot that holds `unit`, or kNoSlot.
    uint32_t Find(uint32_t unit) const;

    // The unit in `slot`, or kNoUnit; and its last use, higher than that of every unit used before.
    uint32_t UnitIn(uint32_t slot) const { return slots_[slot].unit; }
    uint32_t LastUse(uint32_t slot) const { return slots_[slot].lastUse; }
    bool IsFree(uint32_t slot) const { return PlaceOf(slot) == kFree; }

    // The resident units of [first, last], in order.
    std::vector<uint32_t> ResidentIn(uint32_t first, uint32_t last) const;

    // The unit in `slot` was just used.
    void Touch(uint32_t slot);

    // The slot to load a unit into next: a free one, else that of the least recently used unit that
    // is neither pinned nor `inUse`; kNoSlot when there is none.
    uint32_t NextRoom(const std::function<bool(uint32_t unit)>& inUse) const;

    // The slots of up to `most` units, the next to go first; pinned ones never.
    std::vector<uint32_t> NextToGo(size_t most) const;

    // Takes what NextRoom gave; its unit is no longer resident. The slot is the caller's until
    // Insert, Free or Retire.
    void Take(uint32_t slot);

    // `unit` is resident in `slot` now, and the most recently used one. Nothing happens, here and
    // in Free, when the slot was retired meanwhile.
    void Insert(uint32_t slot, uint32_t unit);

    // Into a free slot, at the start, in the order of use: resident again, and last used then.
    void Restore(uint32_t slot, uint32_t unit, uint32_t lastUse);

    // Empties the slot, which can then be taken again.
    void Free(uint32_t slot);

    // Empties a slot that cannot be relied on; it is never taken again.
    void Retire(uint32_t slot);

    // Retires every slot, also those that are being loaded.
    void RetireAll();

    // Replaces the pin bitmap (bit b = unit b, least significant bit first; units beyond it are not
    // pinned). Resident units change sides at once and keep their place in the order of use.
    void SetPins(std::vector<uint8_t> bitmap);

    bool IsPinned(uint32_t unit) const;

    uint32_t Units() const { return units_; }
    uint32_t Slots() const { return static_cast<uint32_t>(slots_.size()); }
    uint32_t Resident() const { return lists_[kPlain].size + lists_[kPinned].size; }
    uint32_t PinnedResident() const { return lists_[kPinned].size; }
    uint32_t Retired() const { return lists_[kRetired].size; }
    uint64_t Pinned() const { return pinned_; }  // bits set in the bitmap

  private:
    // Every slot is on exactly one of these lists. Where the unit tells which, nothing else does.
    enum Place : uint32_t { kFree, kLoading, kRetired, kPlain, kPinned, kPlaces };

    struct Slot {
        uint32_t unit = kNoUnit;      // resident unit
        uint32_t previous = kNoSlot;  // on its list
        uint32_t next = kNoSlot;
        uint32_t chain = kFree;  // with a unit: the next slot of its bucket; else the Place
        uint32_t lastUse = 0;    // reading of clock_
    };

    // Resident ones: least recently used first.
    struct List {
        uint32_t first = kNoSlot;
        uint32_t last = kNoSlot;
        uint32_t size = 0;
    };

    Place PlaceOf(uint32_t slot) const;
    size_t BucketOf(uint32_t unit) const;
    void Append(uint32_t slot, Place place);
    void Remove(uint32_t slot, Place place);
    void Vacate(uint32_t slot, Place place);
    void Use(uint32_t slot);
    uint32_t PopOlder();
    void RenewUses();

    const uint32_t units_;
    std::vector<Slot> slots_;
    std::vector<uint32_t> buckets_;  // the first slot of each chain
    std::array<List, kPlaces> lists_;
    std::vector<uint8_t> pins_;
    uint64_t pinned_ = 0;
    uint32_t clock_ = 0;
};

// The number of bits set in a bitmap.
uint64_t CountBits(const std::vector<uint8_t>& bitmap);

}  // namespace softcache
