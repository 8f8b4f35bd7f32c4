// SPDX-License-Identifier: MIT
// Setting right what a check found. With the service running, what requests can do is done: files
// are pinned again, and what replaced a listed file is pinned. The rest is left for a repair while
// no service runs; see rest_repair.h.
#pragma once

#include <string>

#include "client/verbs/options.h"
#include "client/verbs/repair_report.h"

namespace client {

// Repairs the device mounted at `mountPath`, all when that is empty: by requests and waits for them
// when the service runs, at rest when it does not, around that restarting it when asked to. Returns
// kExitDone when all that was to be done was done or tried, else the exit status. The report says
// what was done either way.
int Repair(const CheckOptions& options, const std::string& configPath, const std::string& mountPath,
           RepairReport& report);

}  // namespace client
