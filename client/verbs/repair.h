// SPDX-License-Identifier: MIT
// Setting right what a check found. While the service runs, requests do what they can: they pin
// files again, and pin what replaced a listed file. The rest is left for a repair while no service
// runs; see rest_repair.h.
#pragma once

#include <string>

#include "client/verbs/options.h"
#include "client/verbs/repair_report.h"

namespace client {

// Repairs the device mounted at `mountPath`, all of them when that is empty. While the service
// runs, it sends requests and waits for them; while none runs, or around a restart when that is
// asked for, it repairs at rest. Returns kExitDone when everything was done or tried, else another
// exit status. The report says what was done in either case.
int Repair(const CheckOptions& options, const std::string& configPath, const std::string& mountPath,
           RepairReport& report);

}  // namespace client
