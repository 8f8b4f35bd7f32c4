// SPDX-License-Identifier: MIT
// The files of a volume that have units in a set: what fills a cache.
#pragma once

#include <stdint.h>

#include <string>
#include <vector>

#include "client/volume/units.h"
#include "client/volume/volumes.h"

namespace client {

struct CachedFile {
    std::string path;  // absolute
    uint64_t size;     // bytes
    UnitRuns units;    // all of the file's
    uint64_t count;    // those of them that are in the set
};

struct CachedFiles {
    std::vector<CachedFile> files;  // those with units in the set, the one with most first
    UnitSet units;                  // all of these files'
    uint64_t passedOver = 0;        // files that could not be looked at, or not in time
};

// Walks the volume and maps its files; those that are met later than `seconds` are only counted.
CachedFiles FindCachedFiles(const Volume& volume, const UnitSet& set, double seconds);

}  // namespace client
