// SPDX-License-Identifier: MIT
#include "softcache/unit_table.h"

namespace softcache {

UnitTable::UnitTable(uint32_t units, uint32_t slots) : slotOf_(units, kNoSlot), slots_(slots) {
    for (uint32_t slot = 0; slot < slots; ++slot) {
        lists_[kFree].push_back(slot);
        slots_[slot].position = std::prev(lists_[kFree].end());
    }
}

uint32_t UnitTable::NextResident(uint32_t first, uint32_t last) const {
    for (uint64_t unit = first; unit <= last; ++unit) {
        if (slotOf_[static_cast<size_t>(unit)] != kNoSlot) {
            return static_cast<uint32_t>(unit);
        }
    }
    return kNoUnit;
}

// To the end of `place`'s list, where the most recently used one stands.
void UnitTable::Move(uint32_t slot, Place place) {
    Slot& entry = slots_[slot];
    std::list<uint32_t>& to = lists_[place];
    to.splice(to.end(), lists_[entry.place], entry.position);
    entry.place = place;
}

void UnitTable::Vacate(uint32_t slot, Place place) {
    Slot& entry = slots_[slot];
    if (entry.unit != kNoUnit) {
        slotOf_[entry.unit] = kNoSlot;
        entry.unit = kNoUnit;
    }
    Move(slot, place);
}

void UnitTable::Touch(uint32_t slot) {
    slots_[slot].lastUse = ++clock_;
    Move(slot, slots_[slot].place);
}

uint32_t UnitTable::TakeSlot(const std::function<bool(uint32_t unit)>& inUse) {
    if (!lists_[kFree].empty()) {
        const uint32_t slot = lists_[kFree].front();
        Move(slot, kLoading);
        return slot;
    }
    for (const uint32_t slot : lists_[kPlain]) {
        if (!inUse(slots_[slot].unit)) {
            Vacate(slot, kLoading);
            return slot;
        }
    }
    return kNoSlot;
}

void UnitTable::Insert(uint32_t slot, uint32_t unit) {
    if (slots_[slot].place == kRetired) {
        return;
    }
    slots_[slot].unit = unit;
    slots_[slot].lastUse = ++clock_;
    slotOf_[unit] = slot;
    Move(slot, IsPinned(unit) ? kPinned : kPlain);
}

void UnitTable::Free(uint32_t slot) {
    if (slots_[slot].place != kRetired) {
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

void UnitTable::SetPins(std::vector<uint8_t> bitmap) {
    pins_ = std::move(bitmap);
    pinned_ = CountBits(pins_);

    // Both lists are in order of use, so one merge and one walk put everybody where they belong.
    std::list<uint32_t> resident;
    resident.splice(resident.end(), lists_[kPlain]);
    resident.merge(lists_[kPinned], [this](uint32_t a, uint32_t b) {
        return slots_[a].lastUse < slots_[b].lastUse;
    });
    while (!resident.empty()) {
        Slot& entry = slots_[resident.front()];
        entry.place = IsPinned(entry.unit) ? kPinned : kPlain;
        std::list<uint32_t>& to = lists_[entry.place];
        to.splice(to.end(), resident, resident.begin());
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
