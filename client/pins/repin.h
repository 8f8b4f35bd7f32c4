// SPDX-License-Identifier: MIT
// Units that several files share. The service has one bit for each unit and clears it when any of
// the files is unpinned. The others are then pinned again, by requests sent right behind the unpin.
#pragma once

#include <vector>

#include "client/pins/device_state.h"

namespace client {

// Returns the files that share a unit with one of `leaving`, whose extents must be filled, and that
// stay pinned, or are queued to be, under any mount path of the devices. None is returned twice.
std::vector<FileRef> FilesToRepin(const std::vector<DeviceState>& devices,
                                  const std::vector<FileRef>& leaving);

}  // namespace client
