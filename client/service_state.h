// SPDX-License-Identifier: MIT
// The service's configuration file, found and read.
#pragma once

#include <string>

#include "client/config_state.h"
#include "client/options.h"

struct ServiceState {
    bool known = false;
    std::string configPath;  // empty when it could not be found
    std::string why;         // why it is not known
    ConfigState state;
};

ServiceState ReadServiceState(const CommonOptions& options);
