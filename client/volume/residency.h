// SPDX-License-Identifier: MIT
// What a cache tells of itself beyond what the service asks: which units it holds now and which
// bits it was last given. Only caches that have an entry in the cache registry tell; that one does
// not is normal.
#pragma once

#include <stdint.h>

#include <string>

#include "client/volume/units.h"

namespace client {

struct Residency {
    bool known = false;      // the cache has an entry in the registry and lives
    uint64_t cacheSize = 0;  // bytes
    UnitSet resident;        // units that it holds now
    UnitSet pinned;          // the bitmap that it was last given
};

// Returns what the cache behind this cached device tells.
Residency ReadResidency(const std::string& devicePath);

}  // namespace client
