// SPDX-License-Identifier: MIT
#include "client/service/service_state.h"

#include "client/service/service_process.h"

namespace client {

ServiceState ReadServiceState(const std::string& configPath) {
    ServiceState read;
    read.known = FindConfigPath(configPath, read.configPath, read.why) &&
                 ReadConfigState(read.configPath, read.state, read.why);
    return read;
}

}  // namespace client
