// SPDX-License-Identifier: MIT
// Units that several files share. The service keeps one bit a unit and clears it when any of them
// is unpinned; the others are then pinned again, by requests that follow in the same queue.
#pragma once

#include <vector>

#include "client/pins/device_state.h"

namespace client {

// Returns the files that stay pinned, or are queued to be, by any mount path of the devices, and
// share a unit with one of `leaving`, whose extents must be filled. None is returned twice.
std::vector<FileRef> FilesToRepin(const std::vector<DeviceState>& devices,
                                  const std::vector<FileRef>& leaving);

}  // namespace client
