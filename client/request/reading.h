// SPDX-License-Identifier: MIT
// What the service reads for a request, which of the queued requests it is at, and how far it has
// come with it.
#pragma once

#include <stdint.h>

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "client/service/config_state.h"
#include "client/service/service_process.h"
#include "client/volume/units.h"
#include "client/volume/volumes.h"

namespace client {

// Returns the extents that a reload of these units reads, in its order.
std::vector<FileMappingEntry> ReadingOf(const UnitSet& bits);

// Returns the extents that the service reads for a stored request, in its order; none for one that
// reads nothing, or whose volume is not mounted. Of a file that has not been written out yet, what
// the service does before it reads is done here.
std::vector<FileMappingEntry> ReadingOf(const StoredRequest& request,
                                        const std::vector<Volume>& volumes);

// Returns how many bytes of these extents the service has read when it has come to `position` on
// the device; 0 when that lies in none of them. It skips extents that were never written.
uint64_t BytesRead(const std::vector<FileMappingEntry>& reading, uint64_t position);

struct RunningRequest {
    size_t index;       // in the queue
    uint64_t position;  // bytes on the cached device
};

// Returns the cached device behind a mount path, "" when there is none.
using DeviceOf = std::function<std::string(const std::string& mountPath)>;

// Returns the request that the service is at: the first of a volume whose device it has open.
// Nothing when it reads none now, which it does between two requests too.
std::optional<RunningRequest> FindRunning(const std::vector<StoredRequest>& queue,
                                          const ServiceProcess& service, const DeviceOf& deviceOf);

}  // namespace client
