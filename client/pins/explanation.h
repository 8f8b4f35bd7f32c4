// SPDX-License-Identifier: MIT
// Everything known about one file that lies on a volume.
#pragma once

#include <stdint.h>

#include <string>
#include <vector>

#include "client/pins/device_state.h"

namespace client {

struct Explanation {
    PinnedFile file;  // as if it were listed and there; its `why` says why it could not be mapped
    DeviceState device;
    bool stateKnown = false;
    std::string whyUnknown;           // why it is not, in words
    bool pinned = false;              // its inode is on the list
    std::string pinnedAs;             // its path on the list, when that is another one
    bool pathReplaced = false;        // its path is on the list with another inode
    std::vector<std::string> queued;  // "request 7 (pinFiles), place 2 of 3"
    bool queuedToPin = false;
    UnitCounts counts;   // of its units that have a bit
    uint64_t units = 0;  // including those without
};

// Explains an examined file, which points into `volumes`.
Explanation Explain(const FileRef& file, const ServiceState& service,
                    const std::vector<Volume>& volumes);

// Returns why units of the file are not in the cache; empty when all are, or when that is not
// known.
std::string WhyNotResident(const Explanation& explanation);

Record DescribeExplanation(const Explanation& explanation);

}  // namespace client
