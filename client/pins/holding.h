// SPDX-License-Identifier: MIT
// What holds once requests are done, judged by the list, the bits, the driver's copy of them, and
// the contents of the cache.
#pragma once

#include <stdint.h>

#include <string>
#include <vector>

#include "client/pins/device_state.h"
#include "client/show/report.h"
#include "client/volume/volume_view.h"

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
    std::string whyAbsent;     // in words, when there are any
    std::vector<Unmet> wrong;  // files that are not what they were to become
};

// Judges a pin, in one record for each volume: every file should be listed, and all of its units
// that have a bit should be set, in the file and with the driver.
std::vector<Holding> HoldingAfterPin(const ConfigState& state, const std::vector<FileRef>& files);

// Judges an unpin: no file should be listed, and of their units only those should be set that
// another listed or queued file needs.
std::vector<Holding> HoldingAfterUnpin(const ConfigState& state, const std::vector<FileRef>& files,
                                       const std::vector<Volume>& volumes);

// Returns whether every file is what it was to become, and all that is pinned is in the cache.
bool AllHold(const std::vector<Holding>& holdings);

// Describes the holding; `done` is what the files are now: "pinned", "unpinned" or "whole again".
Record DescribeHolding(const Holding& holding, const std::string& done);

}  // namespace client
