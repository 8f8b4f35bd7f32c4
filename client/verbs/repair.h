// SPDX-License-Identifier: MIT
// Setting right what a check found. With the service running, what requests can do is done: files
// are pinned again, and what replaced a listed file is pinned. The rest is left for a repair while
// no service runs; see rest_repair.h.
#pragma once

#include <stdint.h>

#include <string>
#include <vector>

#include "client/show/report.h"
#include "client/verbs/options.h"

namespace client {

struct RepairReport {
    size_t requests = 0;               // sent
    uint64_t unitsCleared = 0;         // in bitmap files
    uint64_t unitsSet = 0;             // the same, without a request
    std::vector<std::string> actions;  // what was done or, by requests that were sent, asked for
    std::vector<std::string> left;     // what was not, and why, in words
};

// Repairs the device mounted at `mountPath`, all when that is empty: by requests and waits for them
// when the service runs, at rest when it does not, around that restarting it when asked to. Returns
// kExitDone when all that was to be done was done or tried, else the exit status. The report says
// what was done either way.
int Repair(const CheckOptions& options, const std::string& configPath, const std::string& mountPath,
           RepairReport& report);

// `done`: what was asked for is done, and the volumes are shown again below.
Record DescribeRepair(const RepairReport& repair, bool done);

}  // namespace client
