// SPDX-License-Identifier: MIT
#include "softcache/store/ssd_recovery.h"

#include <algorithm>

namespace softcache {

static std::vector<WarmSlot> Occupied(const std::vector<TableEntry>& entries) {
    std::vector<WarmSlot> slots;
    for (uint32_t slot = 0; slot < entries.size(); ++slot) {
        if (entries[slot].unit != kNoUnit) {
            slots.push_back({slot, entries[slot].unit, entries[slot].lastUse});
        }
    }
    return slots;
}

// A unit that the device's end cuts, or cut when its copy was made, is not the one it was.
static bool IsWhole(uint32_t unit, uint64_t deviceSize, uint64_t oldDeviceSize) {
    const uint64_t end = (uint64_t{unit} + 1) * kUnitSize;
    const uint64_t shorter = std::min(deviceSize, oldDeviceSize);
    return end <= shorter || (deviceSize == oldDeviceSize && end - kUnitSize < deviceSize);
}

int ExamineTable(const SsdStore& store, uint64_t oldDeviceSize, std::vector<TableEntry>& entries,
                 RecoveryReport& report) {
    const int result = store.ReadTable(entries, report.broken);
    if (result != 0) {
        return result;
    }
    for (const uint32_t slot : store.Head().open) {
        if (slot < entries.size() && entries[slot].unit != kNoUnit) {
            ++report.open;
            entries[slot] = {};
        }
    }
    std::vector<WarmSlot> slots = Occupied(entries);
    std::sort(slots.begin(), slots.end(),
              [](const WarmSlot& a, const WarmSlot& b) { return a.unit < b.unit; });
    for (size_t i = 0; i < slots.size(); ++i) {
        const bool twice = (i > 0 && slots[i - 1].unit == slots[i].unit) ||
                           (i + 1 < slots.size() && slots[i + 1].unit == slots[i].unit);
        if (twice || !IsWhole(slots[i].unit, store.Head().deviceSize, oldDeviceSize)) {
            ++report.wrong;
            entries[slots[i].slot] = {};
        }
    }
    return 0;
}

int RecoverTable(SsdStore& store, uint64_t oldDeviceSize, std::vector<WarmSlot>& warm,
                 RecoveryReport& report) {
    std::vector<TableEntry> entries;
    int result = ExamineTable(store, oldDeviceSize, entries, report);
    // What is left out now may be changed on the backing without a note, so its line has to go
    // before the head that names it does.
    if (result == 0 && report.open + report.wrong + report.broken > 0) {
        result = store.WriteTable(store.Head().tableSeed, entries);
    }
    if (result == 0) {
        result = store.WriteHead({});
    }
    if (result != 0) {
        return result;
    }
    warm = Occupied(entries);
    std::sort(warm.begin(), warm.end(),
              [](const WarmSlot& a, const WarmSlot& b) { return a.lastUse < b.lastUse; });
    return 0;
}

}  // namespace softcache
