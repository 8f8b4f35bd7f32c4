// SPDX-License-Identifier: MIT
// A volume as it is now: its cached device, its bitmap file, what its cache reports, and how far
// units have come among these.
#pragma once

#include <stdint.h>

#include <map>
#include <string>
#include <vector>

#include "client/show/report.h"
#include "client/volume/units.h"
#include "client/volume/volumes.h"

namespace client {

// What a cache reports of itself beyond what the service asks for: the units that it holds now, and
// the bits that it was last given. Only a cache with an entry in the cache registry reports them;
// it is normal for one to have none.
struct Residency {
    bool known = false;      // the cache has an entry in the registry and lives
    uint64_t cacheSize = 0;  // bytes
    UnitSet resident;        // units that it holds now
    UnitSet pinned;          // the bitmap that it was last given
};

// Returns what the cache behind this cached device reports.
Residency ReadResidency(const std::string& devicePath);

// Returns the numbers of what the cache behind this cached device counts, its stats.json, by their
// names there; empty when it does not tell.
std::map<std::string, uint64_t> ReadCacheStats(const std::string& devicePath);

struct VolumeView {
    std::string mountPath;
    std::string cachePath;    // the cached device; empty when the volume has no cache
    bool keepsPins = false;   // the cache serves now and keeps pinned units
    uint64_t deviceSize = 0;  // bytes; 0 when it is not known
    std::string bitmapPath;
    bool hasBitmap = false;  // the bitmap file exists and could be read
    uint64_t fileBytes = 0;  // its length
    UnitSet bits;            // its bits, with the room that the device has, where that is known
    Residency residency;
};

VolumeView LookAt(const Volume& volume);

// Whether so many units are more than the cache holds; false when its size is not known.
bool IsMoreThanCache(const Residency& residency, uint64_t units);

std::string BitmapPathOf(const Volume& volume);

// Whether both paths lead to one file that is there.
bool AreOneFile(const std::string& path, const std::string& other);

// The mount paths of the volume's device, this one and each other once, in the order of `volumes`.
// However often a device is mounted, its units and mostly its bitmap file are the same.
std::vector<const Volume*> MountsOf(const Volume& volume, const std::vector<Volume>& volumes);

// How far some units have come.
struct UnitCounts {
    uint64_t units = 0;       // those that have a bit
    uint64_t set = 0;         // of those, set in the bitmap file
    bool cacheTells = false;  // whether the next two are known
    uint64_t withDriver = 0;  // of those, set in the bitmap that the driver has
    uint64_t resident = 0;    // of those, in the cache
};

UnitCounts CountUnits(const VolumeView& view, const UnitSet& units);

// Adds the counts as "units", "unitsSet", "unitsWithDriver" and "unitsResident", and in words.
void AddCounts(const UnitCounts& counts, Record& record);

// Returns an array of pairs, the first and the last unit of each run.
Json::Value RunsToJson(const UnitRuns& runs);

}  // namespace client
