// SPDX-License-Identifier: MIT
// What a repair did, and what it left.
#pragma once

#include <stdint.h>

#include <string>
#include <vector>

#include "client/show/report.h"

namespace client {

struct RepairReport {
    size_t requests = 0;               // sent
    uint64_t unitsCleared = 0;         // in bitmap files
    uint64_t unitsSet = 0;             // in bitmap files, not counting what requests set
    std::vector<std::string> actions;  // what was done or, by requests that were sent, asked for
    std::vector<std::string> left;     // what was not done, and why, in words
};

// Describes the repair. `done` means that its requests are done, and the volumes are shown again
// below.
Record DescribeRepair(const RepairReport& repair, bool done);

}  // namespace client
