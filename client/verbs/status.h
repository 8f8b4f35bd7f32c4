// SPDX-License-Identifier: MIT
// The service, its queue and what is pinned, as they are now.
#pragma once

#include <stdint.h>

#include <optional>
#include <string>
#include <vector>

#include "client/pins/pin_health.h"
#include "client/service/config_state.h"
#include "client/service/queue.h"
#include "client/service/service_process.h"
#include "client/volume/volume_view.h"

namespace client {

struct RequestStatus {
    StoredRequest request;
    size_t files = 0;
    std::string state;
    std::optional<size_t> ahead;  // requests before it; not known while its volume is pending
    bool runs = false;            // the service reads for it; the next are known then
    uint64_t position = 0;        // bytes on the cached device
    uint64_t bytes = 0;           // that it reads; 0 when they are not known
    uint64_t bytesRead = 0;
};

struct VolumeStatus {
    VolumeView view;
    size_t files = 0;  // on the list
    PinHealth health = PinHealth::kNothing;
};

struct Status {
    std::vector<ServiceProcess> services;
    bool standsStill = false;  // messages wait, and it takes none
    bool queueKnown = false;
    QueueFacts queue;
    std::string queueWhy;
    ServiceState stored;
    std::vector<RequestStatus> requests;
    std::vector<VolumeStatus> volumes;   // those with pinned files or requests
    std::vector<std::string> unmounted;  // mount paths with pinned files and no volume
};

Status ReadStatus(const std::string& configPath);

// The same without requests and volumes, which take reading bitmaps.
Status ReadServiceStatus(const std::string& configPath);

// kExitNoService when requests are not taken or not carried out, else that of the volume that is
// worst off.
int ExitStatusOf(const Status& status);

}  // namespace client
