// SPDX-License-Identifier: MIT
#include "softcache/store/unit_table.h"

#include <algorithm>

namespace softcache {

UnitTable::UnitTable(uint32_t units, uint32_t slots)
    : units_(units), slots_(slots), buckets_(slots, kNoSlot) {
    for (uint32_t slot = 0; slot < slots; ++slot) {
        Append(slot, kFree);
    }
}

UnitTable::Place UnitTable::PlaceOf(uint32_t slot) const {
    const Slot& entry = slots_[slot];
    if (entry.unit == kNoUnit) {
        return static_cast<Place>(entry.chain);
    }
    return IsPinned(entry.unit) ? kPinned : kPlain;
}

// Multiplied, so that units at equal distances do not meet in one chain.
size_t UnitTable::BucketOf(uint32_t unit) const {
    constexpr uint32_t kGoldenRatio = 0x9E3779B1;
    const uint32_t mixed = unit * kGoldenRatio;  // in 32 bits, by intent
    return static_cast<size_t>((uint64_t{mixed} * buckets_.size()) >> 32);
}

uint32_t UnitTable::Find(uint32_t unit) const {
    uint32_t slot = buckets_[BucketOf(unit)];
    while (slot != kNoSlot && slots_[slot].unit != unit) {
        slot = slots_[slot].chain;
    }
    return slot;
}

std::vector<uint32_t> UnitTable::ResidentIn(uint32_t first, uint32_t last) const {
    std::vector<uint32_t> found;
    if (last - first < Slots()) {
        for (uint64_t unit = first; unit <= last; ++unit) {
            if (Find(static_cast<uint32_t>(unit)) != kNoSlot) {
                found.push_back(static_cast<uint32_t>(unit));
            }
        }
        return found;
    }
    for (const Slot& entry : slots_) {
        if (entry.unit != kNoUnit && first <= entry.unit && entry.unit <= last) {
            found.push_back(entry.unit);
        }
    }
    std::sort(found.begin(), found.end());
    return found;
}

// To the end of the list, where the most recently used one stands.
void UnitTable::Append(uint32_t slot, Place place) {
    List& list = lists_[place];
    Slot& entry = slots_[slot];
    entry.previous = list.last;
    entry.next = kNoSlot;
    (list.last == kNoSlot ? list.first : slots_[list.last].next) = slot;
    list.last = slot;
    ++list.size;
}

void UnitTable::Remove(uint32_t slot, Place place) {
    List& list = lists_[place];
    const Slot& entry = slots_[slot];
    (entry.previous == kNoSlot ? list.first : slots_[entry.previous].next) = entry.next;
    (entry.next == kNoSlot ? list.last : slots_[entry.next].previous) = entry.previous;
    --list.size;
}

void UnitTable::Vacate(uint32_t slot, Place place) {
    Slot& entry = slots_[slot];
    Remove(slot, PlaceOf(slot));
    if (entry.unit != kNoUnit) {
        uint32_t* link = &buckets_[BucketOf(entry.unit)];
        while (*link != slot) {
            link = &slots_[*link].chain;
        }
        *link = entry.chain;
        entry.unit = kNoUnit;
    }
    entry.chain = place;
    Append(slot, place);
}

void UnitTable::Use(uint32_t slot) {
    if (clock_ == UINT32_MAX) {
        RenewUses();
    }
    slots_[slot].lastUse = ++clock_;
}

void UnitTable::Touch(uint32_t slot) {
    const Place place = PlaceOf(slot);
    Use(slot);
    Remove(slot, place);
    Append(slot, place);
}

uint32_t UnitTable::NextRoom(const std::function<bool(uint32_t unit)>& inUse) const {
    uint32_t slot = lists_[kFree].first;
    if (slot == kNoSlot) {
        slot = lists_[kPlain].first;
        while (slot != kNoSlot && inUse(slots_[slot].unit)) {
            slot = slots_[slot].next;
        }
    }
    return slot;
}

std::vector<uint32_t> UnitTable::NextToGo(size_t most) const {
    std::vector<uint32_t> slots;
    for (uint32_t slot = lists_[kPlain].first; slot != kNoSlot && slots.size() < most;
         slot = slots_[slot].next) {
        slots.push_back(slot);
    }
    return slots;
}

void UnitTable::Take(uint32_t slot) {
    Vacate(slot, kLoading);
}

void UnitTable::Insert(uint32_t slot, uint32_t unit) {
    if (PlaceOf(slot) == kRetired) {
        return;
    }
    Use(slot);
    Remove(slot, PlaceOf(slot));
    uint32_t& bucket = buckets_[BucketOf(unit)];
    slots_[slot].unit = unit;
    slots_[slot].chain = bucket;
    bucket = slot;
    Append(slot, PlaceOf(slot));
}

void UnitTable::Restore(uint32_t slot, uint32_t unit, uint32_t lastUse) {
    clock_ = std::max(clock_, std::max(lastUse, 1u) - 1);
    Insert(slot, unit);
}

void UnitTable::Free(uint32_t slot) {
    if (PlaceOf(slot) != kRetired) {
        Vacate(slot, kFree);
    }
}

void UnitTable::Retire(uint32_t slot) {
    Vacate(slot, kRetired);
}

void UnitTable::RetireAll() {
    for (uint32_t slot = 0; slot < Slots(); ++slot) {
        Retire(slot);
    }
}

// Takes the resident slot that was used longest ago off its list; kNoSlot when there is none.
uint32_t UnitTable::PopOlder() {
    const uint32_t plain = lists_[kPlain].first;
    const uint32_t pinned = lists_[kPinned].first;
    const bool takePinned =
        plain == kNoSlot || (pinned != kNoSlot && slots_[pinned].lastUse < slots_[plain].lastUse);
    const uint32_t slot = takePinned ? pinned : plain;
    if (slot != kNoSlot) {
        Remove(slot, takePinned ? kPinned : kPlain);
    }
    return slot;
}

// Both lists are in order of use, so one merge and one walk put everybody where they belong.
void UnitTable::SetPins(std::vector<uint8_t> bitmap) {
    List merged;
    for (uint32_t slot = PopOlder(); slot != kNoSlot; slot = PopOlder()) {
        slots_[slot].next = kNoSlot;
        (merged.last == kNoSlot ? merged.first : slots_[merged.last].next) = slot;
        merged.last = slot;
    }
    pins_ = std::move(bitmap);
    pinned_ = CountBits(pins_);
    for (uint32_t slot = merged.first; slot != kNoSlot;) {
        const uint32_t next = slots_[slot].next;
        Append(slot, PlaceOf(slot));
        slot = next;
    }
}

// The clock starts again; the order stays.
void UnitTable::RenewUses() {
    clock_ = 0;
    uint32_t plain = lists_[kPlain].first;
    uint32_t pinned = lists_[kPinned].first;
    while (plain != kNoSlot || pinned != kNoSlot) {
        uint32_t& older = plain == kNoSlot || (pinned != kNoSlot &&
                                               slots_[pinned].lastUse < slots_[plain].lastUse)
                              ? pinned
                              : plain;
        slots_[older].lastUse = ++clock_;
        older = slots_[older].next;
    }
}

bool UnitTable::IsPinned(uint32_t unit) const {
    return unit / 8 < pins_.size() && ((pins_[unit / 8] >> (unit % 8)) & 1) != 0;
}

uint64_t CountBits(const std::vector<uint8_t>& bitmap) {
    uint64_t bits = 0;
    for (const uint8_t byte : bitmap) {
        bits += static_cast<uint64_t>(__builtin_popcount(byte));
    }
    return bits;
}

}  // namespace softcache
