// SPDX-License-Identifier: MIT
// What really holds after requests are done: the list, the bits, the driver's copy of them, and
// what the cache has.
#pragma once

#include <stdint.h>

#include <string>
#include <vector>

#include "client/pins/device_state.h"
#include "client/pins/unit_counts.h"
#include "client/show/report.h"

namespace client {

struct Unmet {
    std::string path;
    std::string reason;
};

// Sums over the files of one volume.
struct Holding {
    std::string volume;
    size_t files = 0;
    uint64_t bytes = 0;        // of their extents
    UnitCounts counts;         // of their units; after an unpin, of those that nothing else needs
    uint64_t absent = 0;       // after a pin: units that were written and are not in the cache
    std::string whyAbsent;     // in words, when any is
    std::vector<Unmet> wrong;  // files for which it does not hold
};

// After a pin: every file is listed, all of its units that have a bit are set, and the driver has
// them. One record a volume.
std::vector<Holding> HoldingAfterPin(const ConfigState& state, const std::vector<FileRef>& files);

// After an unpin: no file is listed, and of their units only those are set that a file which stays
// pinned or is queued to be needs.
std::vector<Holding> HoldingAfterUnpin(const ConfigState& state, const std::vector<FileRef>& files,
                                       const std::vector<Volume>& volumes);

// Whether everything holds, and what is pinned is in the cache.
bool AllHold(const std::vector<Holding>& holdings);

// Describes the holding; `done` is what the files are now: "pinned", "unpinned" or "whole again".
Record DescribeHolding(const Holding& holding, const std::string& done);

}  // namespace client
