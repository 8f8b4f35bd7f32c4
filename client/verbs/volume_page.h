// SPDX-License-Identifier: MIT
// The page of a volume: what list, check and the cache say of it, and its map.
#pragma once

#include <string>
#include <vector>

#include "client/service/config_state.h"
#include "client/verbs/options.h"
#include "client/volume/volumes.h"

namespace client {

// Reads everything that the page tells and returns it. The volume must have a cache or a bitmap
// file.
std::string MakeVolumePage(const Volume& volume, const std::vector<Volume>& volumes,
                           const CommonOptions& options);

}  // namespace client
