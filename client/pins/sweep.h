// SPDX-License-Identifier: MIT
// Clearing the bits that no pinned file needs: no request can name them, as they are in no file's
// extents. They are cleared in the bitmap file, while its device has no request that could be using
// it; the volume's next request hands the bitmap to the driver.
#pragma once

#include <string>
#include <vector>

#include "client/pins/check.h"

namespace client {

struct RepairReport;

// Waits until the volume's device has no request, for `patience` seconds (0 = a minute), looks at
// it anew and clears what nobody needs then. Says what it did or could not do in the report.
// Returns kExitDone then too, else the exit status.
int SweepVolume(const VolumeCheck& found, const std::string& configPath, unsigned patience,
                RepairReport& report);

}  // namespace client
