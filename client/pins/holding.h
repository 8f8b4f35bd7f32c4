// SPDX-License-Identifier: MIT
// What really holds after requests are done: the list, the bits, the driver's copy of them, and
// what the cache has.
#pragma once

#include <stdint.h>

#include <string>
#include <vector>

#include "client/request/file_job.h"
#include "client/service/config_state.h"
#include "client/volume/volume_view.h"

namespace client {

// Sums over the files of one volume.
struct Holding {
    std::string mountPath;
    size_t files = 0;
    uint64_t bytes = 0;          // of their extents
    uint64_t wanted = 0;         // units that should be set; after an unpin: that should be clear
    uint64_t set = 0;            // of those, set in the bitmap file
    bool cacheTells = false;     // the next two are known
    uint64_t driver = 0;         // of the wanted units, set in the bitmap that the driver has
    uint64_t resident = 0;       // of the wanted units, in the cache now
    uint64_t absent = 0;         // after a pin: written, wanted, and not in the cache
    std::string whyAbsent;       // in words, when any is
    std::vector<Refusal> wrong;  // files for which it does not hold, each with the reason
};

// After a pin: every file is listed, all of its units that have a bit are set, and the driver has
// them. Files that are mended count as pinned. One record a volume.
std::vector<Holding> HoldingAfterPin(const ConfigState& state, const std::vector<FileRef>& files,
                                     Mapper& mapper);

// After an unpin: no file is listed, and of their units only those are set that a file which stays
// pinned or is queued to be needs.
std::vector<Holding> HoldingAfterUnpin(const ConfigState& state, const std::vector<FileRef>& files,
                                       const std::vector<Volume>& volumes, Mapper& mapper);

// Whether everything holds, and what is pinned is in the cache.
bool AllHold(const std::vector<Holding>& holdings);

Json::Value HoldingToJson(const std::vector<Holding>& holdings);
void PrintHolding(const std::vector<Holding>& holdings, bool pinned);

// Says what became of the files that shared units with those unpinned.
void PrintMendedHolding(const std::vector<Holding>& holdings);

}  // namespace client
