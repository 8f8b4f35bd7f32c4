// SPDX-License-Identifier: MIT
// How far some units have come: set in the bitmap file, with the driver, in the cache.
#pragma once

#include <stdint.h>

#include <string>

#include "client/show/report.h"
#include "client/volume/volume_view.h"

namespace client {

struct UnitCounts {
    uint64_t units = 0;       // those that have a bit
    uint64_t set = 0;         // of those, set in the bitmap file
    bool cacheTells = false;  // whether the next two are known
    uint64_t withDriver = 0;  // of those, set in the bitmap that the driver has
    uint64_t resident = 0;    // of those, in the cache
};

UnitCounts CountUnits(const VolumeView& view, const UnitSet& units);

// Returns an array of pairs, the first and the last unit of each run.
Json::Value RunsToJson(const UnitRuns& runs);

// Adds the counts as "units", "unitsSet", "unitsWithDriver" and "unitsResident", and in words.
void AddCounts(const UnitCounts& counts, Record& record);

}  // namespace client
