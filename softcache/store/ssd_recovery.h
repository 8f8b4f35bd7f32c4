// SPDX-License-Identifier: MIT
// What of an SSD's table can be believed at the start.
#pragma once

#include <stdint.h>

#include <vector>

#include "softcache/store/ssd_store.h"

namespace softcache {

// A slot that holds a copy of a unit.
struct WarmSlot {
    uint32_t slot;
    uint32_t unit;
    uint32_t lastUse;
};

// How a start found the table, in slots but for `broken`.
struct RecoveryReport {
    uint32_t open = 0;    // the last head named them: left out
    uint32_t wrong = 0;   // no unit of this device whole, or two slots of one unit: left out
    uint32_t broken = 0;  // sectors of the table that are not whole
};

// Reads the table, most recently used last, and writes back what is left of it and a head with
// nothing open. `oldDeviceSize`: bytes of the device when the copies were made. Returns 0 or
// -errno.
int RecoverTable(SsdStore& store, uint64_t oldDeviceSize, std::vector<WarmSlot>& warm,
                 RecoveryReport& report);

// The same without writing, by the head as it was read.
int ExamineTable(const SsdStore& store, uint64_t oldDeviceSize, std::vector<TableEntry>& entries,
                 RecoveryReport& report);

}  // namespace softcache
