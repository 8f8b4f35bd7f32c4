// SPDX-License-Identifier: MIT
// What pinning or unpinning would cost, worked out without sending anything.
#pragma once

#include <stdint.h>

#include <string>
#include <vector>

#include "client/show/report.h"
#include "client/volume/file_ref.h"

namespace client {

struct Price {
    std::string volume;
    size_t files = 0;
    size_t extents = 0;
    uint64_t bytes = 0;        // of the extents
    uint64_t units = 0;        // in which the files lie, each counted once
    uint64_t unitsSet = 0;     // of those, pinned already
    uint64_t withoutBit = 0;   // of those, in the device's tail, where none can be pinned
    uint64_t pinnedNow = 0;    // units of the volume
    uint64_t pinnedThen = 0;   // units of the volume afterwards
    uint64_t cacheSize = 0;    // bytes; 0 = not known
    size_t repinnedFiles = 0;  // that share units and would be pinned again
    size_t requests = 0;       // the caller fills this
};

// Prices a pin, or an unpin, of files whose extents are filled, in one record for each volume and
// in the order of the files. `repinned` are the files that would be pinned again.
std::vector<Price> PriceOf(bool pin, const std::vector<FileRef>& files,
                           const std::vector<FileRef>& repinned);

Record DescribePrice(const Price& price);

}  // namespace client
