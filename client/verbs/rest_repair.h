// SPDX-License-Identifier: MIT
// Setting right what requests cannot, while no service runs: the lists become what is there, the
// bitmaps exactly what the lists need, and the drivers are handed them.
#pragma once

#include <string>

#include "client/verbs/repair_report.h"

namespace client {

// Repairs the device mounted at `mountPath`, all when that is empty. What is queued stays queued
// and is carried out after the service's start. Returns kExitDone when it was tried, with what was
// done and what was not in the report, else the exit status, having said why.
int RepairAtRest(const std::string& configPath, const std::string& mountPath, RepairReport& report);

}  // namespace client
