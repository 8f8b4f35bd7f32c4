// SPDX-License-Identifier: MIT
// Setting right what a check found. While the service runs, requests do what they can: they pin
// files again, and pin what replaced a listed file. While no service runs, everything else is set
// right too: the lists become what is there, the bitmaps exactly what the lists need, and the
// drivers get the bitmaps.
//
// Wherever a mount path may be given, an empty one means all devices. The report says what was done
// and what was left, whatever is returned.
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

// Repairs in the way that is open now: at rest when no service runs, or around a restart when that
// is asked for, else by requests. Returns kExitDone when everything was done or tried, else another
// exit status.
int Repair(const CheckOptions& options, const std::string& configPath, const std::string& mountPath,
           RepairReport& report);

// Pins files that lack units again, pins files that replaced listed ones, and waits for the
// requests. What does not fit into its cache is left out, unless the options have it. Returns
// kExitDone when all requests are done, successfully or not; else another exit status, having said
// why.
int RepairByRequests(const std::string& configPath, const std::string& mountPath,
                     const CheckOptions& options, RepairReport& report);

// Repairs while no service runs. Queued requests stay queued until the service starts. With
// `overcommit` bits are set beyond what a cache holds. Returns kExitDone when the repair was tried;
// else another exit status, having said why.
int RepairAtRest(const std::string& configPath, const std::string& mountPath, bool overcommit,
                 RepairReport& report);

// Describes the repair. `done` means that its requests are done, and the volumes are shown again
// below.
Record DescribeRepair(const RepairReport& repair, bool done);

}  // namespace client
