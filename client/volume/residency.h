// SPDX-License-Identifier: MIT
// What a cache reports of itself beyond what the service asks for: the units that it holds now, and
// the bits that it was last given. Only a cache with an entry in the cache registry reports them;
// it is normal for one to have none.
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

// Returns what the cache behind this cached device reports.
Residency ReadResidency(const std::string& devicePath);

}  // namespace client
