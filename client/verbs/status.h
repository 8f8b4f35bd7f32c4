// SPDX-License-Identifier: MIT
// The service, its queue and what is pinned, as they are now.
#pragma once

#include <stdint.h>

#include <string>
#include <vector>

#include "client/service/config_state.h"
#include "client/service/queue.h"
#include "client/service/service_process.h"
#include "client/volume/volume_view.h"

namespace client {

struct RequestStatus {
    StoredRequest request;
    size_t files = 0;
    std::string state;
    uint64_t position = 0;  // bytes on the cached device, while running
};

struct Status {
    std::vector<ServiceProcess> services;
    bool standsStill = false;  // messages wait, and it takes none
    bool queueKnown = false;
    QueueFacts queue;
    std::string queueWhy;
    ServiceState stored;
    std::vector<RequestStatus> requests;
    std::vector<VolumeView> volumes;  // those with pinned files or bits
};

Status ReadStatus(const std::string& configPath);

// The same without requests and volumes, which take reading bitmaps.
Status ReadServiceStatus(const std::string& configPath);

// kExitDone when requests are taken and carried out, else kExitNoService.
int ExitStatusOf(const Status& status);

}  // namespace client
