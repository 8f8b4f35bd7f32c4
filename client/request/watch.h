// SPDX-License-Identifier: MIT
// Waiting for requests that were sent, showing their progress on standard error.
#pragma once

#include <stdint.h>

#include <string>
#include <vector>

#include "client/request/follow.h"

namespace client {

struct WaitOptions {
    std::string configPath;
    int64_t base = 0;      // the next request number before anything was sent
    unsigned timeout = 0;  // seconds; 0 = as long as it takes
};

// Waits until all requests have left the queue. Returns kExitDone; otherwise says why and returns
// kExitTimedOut, 128 plus the number of the signal that ended the wait, or kExitNoService when the
// service has ended or stopped working.
int WaitForRequests(std::vector<Watched>& requests, const WaitOptions& options);

}  // namespace client
