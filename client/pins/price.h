// SPDX-License-Identifier: MIT
// What pinning or unpinning would cost, worked out without sending anything.
#pragma once

#include <stdint.h>

#include <string>
#include <vector>

#include "client/request/file_job.h"

namespace client {

struct Price {
    std::string mountPath;
    size_t files = 0;
    size_t extents = 0;
    uint64_t bytes = 0;       // that the extents have
    uint64_t units = 0;       // that the files lie in, each counted once
    uint64_t unitsSet = 0;    // of those, pinned already
    uint64_t unitsNoBit = 0;  // of those, behind the last bit: never pinned
    uint64_t pinnedNow = 0;   // units of the volume
    uint64_t pinnedThen = 0;  // units of the volume afterwards
    uint64_t cacheSize = 0;   // bytes; 0 = not known
    size_t requests = 0;
    size_t repinnedFiles = 0;  // that share units and would be pinned again
};

// Returns a price for each volume of the job, in the order of its messages.
std::vector<Price> PriceOf(const FileJob& job);

Json::Value PriceToJson(const std::vector<Price>& prices);
void PrintPrice(const std::vector<Price>& prices, const FileJob& job);

}  // namespace client
