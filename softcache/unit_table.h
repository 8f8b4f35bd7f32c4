// SPDX-License-Identifier: MIT
// Which unit of the device lies in which slot of the SSD, and which one goes next.
//
// Bookkeeping only: no input or output, and no locks (the caller serialises).
#pragma once

#include <stddef.h>
#include <stdint.h>

#include <functional>
#include <list>
#include <vector>

namespace softcache {

constexpr uint32_t kUnitSize = 65536;       // bytes of the device that are cached as one
constexpr uint32_t kNoSlot = UINT32_MAX;    // "not resident", "no slot to be had"
constexpr uint32_t kNoUnit = UINT32_MAX;    // "no such unit"
constexpr uint32_t kMaxUnits = UINT32_MAX;  // a device is smaller than 256 TiB

class UnitTable {
  public:
    // A device of `units` units, a cache of `slots` free slots.
    UnitTable(uint32_t units, uint32_t slots);

    // The slot that holds `unit`, or kNoSlot.
    uint32_t Find(uint32_t unit) const { return slotOf_[unit]; }

    // The first resident unit of [first, last], or kNoUnit; also when the range is empty.
    uint32_t NextResident(uint32_t first, uint32_t last) const;

    // The unit in `slot` was just used.
    void Touch(uint32_t slot);

    // Takes a slot to load a unit into: a free one, else that of the least recently used unit that
    // is neither pinned nor `inUse`; that unit is no longer resident. kNoSlot when there is none.
    // The slot is the caller's until Insert, Free or Retire.
    uint32_t TakeSlot(const std::function<bool(uint32_t unit)>& inUse);

    // `unit` is resident in `slot` now, and the most recently used one. Nothing happens, here and
    // in Free, when the slot was retired meanwhile.
    void Insert(uint32_t slot, uint32_t unit);

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

    uint32_t Units() const { return static_cast<uint32_t>(slotOf_.size()); }
    uint32_t Slots() const { return static_cast<uint32_t>(slots_.size()); }
    uint32_t Resident() const { return Count(kPlain) + Count(kPinned); }
    uint32_t PinnedResident() const { return Count(kPinned); }
    uint32_t Retired() const { return Count(kRetired); }
    uint64_t Pinned() const { return pinned_; }  // bits set in the bitmap

  private:
    // Every slot is on exactly one of these lists.
    enum Place { kFree, kLoading, kPlain, kPinned, kRetired, kPlaces };

    struct Slot {
        uint32_t unit = kNoUnit;  // resident unit, kNoUnit unless kPlain or kPinned
        Place place = kFree;
        uint64_t lastUse = 0;                    // reading of clock_
        std::list<uint32_t>::iterator position;  // its node on lists_[place]
    };

    uint32_t Count(Place place) const { return static_cast<uint32_t>(lists_[place].size()); }
    void Move(uint32_t slot, Place place);
    void Vacate(uint32_t slot, Place place);

    std::vector<uint32_t> slotOf_;        // by unit
    std::vector<Slot> slots_;             // by slot
    std::list<uint32_t> lists_[kPlaces];  // resident ones: least recently used first
    std::vector<uint8_t> pins_;
    uint64_t pinned_ = 0;
    uint64_t clock_ = 0;
};

// The number of bits set in a bitmap.
uint64_t CountBits(const std::vector<uint8_t>& bitmap);

}  // namespace softcache
