// SPDX-License-Identifier: MIT
#include "client/service_state.h"

#include "client/service_process.h"

ServiceState ReadServiceState(const CommonOptions& options) {
    ServiceState read;
    read.known = FindConfigPath(options.configPath, read.configPath, read.why) &&
                 ReadConfigState(read.configPath, read.state, read.why);
    return read;
}
