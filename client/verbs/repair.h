// SPDX-License-Identifier: MIT
// Setting right what a check found. While the service runs, requests do what they can: they pin
// files again, and pin what replaced a listed file. The rest is left for a repair while no service
// runs; see rest_repair.h.
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
    uint64_t unitsSet = 0;             // in bitmap files, not counting what requests set
    std::vector<std::string> actions;  // what was done or, by requests that were sent, asked for
    std::vector<std::string> left;     // what was not done, and why, in words
};

// Repairs the device mounted at `mountPath`, all of them when that is empty. While the service
// runs, it sends requests and waits for them; while none runs, or around a restart when that is
// asked for, it repairs at rest. Returns kExitDone when everything was done or tried, else another
// exit status. The report says what was done in either case.
int Repair(const CheckOptions& options, const std::string& configPath, const std::string& mountPath,
           RepairReport& report);

// Describes the repair. `done` means that its requests are done, and the volumes are shown again
// below.
Record DescribeRepair(const RepairReport& repair, bool done);

}  // namespace client
