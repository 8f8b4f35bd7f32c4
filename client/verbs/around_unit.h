// SPDX-License-Identifier: MIT
// Work that needs the service at rest, between a stop and a start of its unit.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "client/service/service_process.h"

namespace client {

// Whether the services that run are the unit's one process, so that it can be stopped and started.
bool IsUnitAlone(const std::vector<ServiceProcess>& services);

// Stops the unit, does the work and starts the unit again, whatever the work came to; signals wait
// until then. Refuses when the services that run are not the unit's one process, or their
// configuration file ends with them; `command` is what to run by hand instead. Returns the work's
// exit status, or another one, having said why.
int AroundUnit(const std::vector<ServiceProcess>& services, const std::string& configPath,
               const char* command, const std::function<int()>& work);

}  // namespace client
