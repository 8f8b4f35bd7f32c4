// SPDX-License-Identifier: MIT
// Waiting for requests that were sent, showing their progress on standard error.
#pragma once

#include <stdint.h>

#include <optional>
#include <string>
#include <vector>

#include "client/request/follow.h"

namespace client {

struct WaitOptions {
    std::string configPath;
    int64_t base = 0;      // the next request number before anything was sent
    unsigned timeout = 0;  // seconds; 0 = as long as it takes
    // Also for all else that is queued, and for what comes meanwhile: of the volume with this mount
    // path or, when it is empty, of any.
    std::optional<std::string> queueOf = std::nullopt;
};

// Waits until all requests have left the queue; those that are waited for besides, as the options
// say, are added to them. Returns kExitDone; otherwise says why and returns
// kExitTimedOut, 128 plus the number of the signal that ended the wait, or kExitNoService when the
// service has ended or stopped working.
int WaitForRequests(std::vector<Watched>& requests, const WaitOptions& options);

}  // namespace client
