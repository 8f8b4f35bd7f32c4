// SPDX-License-Identifier: MIT
// The files that took the place of listed ones.
#pragma once

#include <vector>

#include "client/pins/rest_plan.h"

namespace client {

// Returns the file at the path of each entry whose own file was replaced. The files point into
// `volumes`.
Followers FindFollowers(const std::vector<DeviceState>& devices,
                        const std::vector<Volume>& volumes);

}  // namespace client
