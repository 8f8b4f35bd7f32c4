// SPDX-License-Identifier: MIT
// Setting right by requests, which a running service carries out.
#pragma once

#include <string>

#include "client/request/sending.h"
#include "client/verbs/repair_report.h"

namespace client {

// Pins again what lacks units, pins what replaced listed files, and waits for it. Names in the
// report what is left for a repair at rest. Returns kExitDone when all requests are done, whatever
// they came to, else the exit status, having said why.
int RepairByRequests(const std::string& configPath, const std::string& mountPath,
                     const SendOptions& options, RepairReport& report);

}  // namespace client
