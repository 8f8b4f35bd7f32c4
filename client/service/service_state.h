// SPDX-License-Identifier: MIT
// The service's configuration file, found and read.
#pragma once

#include <string>

#include "client/service/config_state.h"

namespace client {

struct ServiceState {
    bool known = false;
    std::string configPath;  // empty when it could not be found
    std::string why;         // why it is not known
    ConfigState state;
};

// `configPath`: the file; empty = found from the running service.
ServiceState ReadServiceState(const std::string& configPath);

}  // namespace client
