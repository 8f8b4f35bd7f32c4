// SPDX-License-Identifier: MIT
// Setting right what requests cannot, while no service runs: the lists become what is there, the
// bitmaps become exactly what the lists need, and the drivers get the bitmaps.
#pragma once

#include <string>

#include "client/verbs/repair_report.h"

namespace client {

// Repairs the device mounted at `mountPath`, all of them when that is empty. Queued requests stay
// queued until the service starts. Returns kExitDone when the repair was tried, with what was done
// and what was not in the report; else another exit status, having said why.
int RepairAtRest(const std::string& configPath, const std::string& mountPath, RepairReport& report);

}  // namespace client
