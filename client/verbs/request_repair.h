// SPDX-License-Identifier: MIT
// Setting right what requests can, with a service that carries them out.
#pragma once

#include <string>

#include "client/request/sending.h"
#include "client/verbs/repair_report.h"

namespace client {

// Pins files that lack units again, pins files that replaced listed ones, and waits for the
// requests. The report names what is left for a repair at rest. Returns kExitDone when all requests
// are done, successfully or not; else another exit status, having said why.
int RepairByRequests(const std::string& configPath, const std::string& mountPath,
                     const SendOptions& options, RepairReport& report);

}  // namespace client
