// SPDX-License-Identifier: MIT
// What pinning or unpinning would cost, worked out without sending anything.
#pragma once

#include <stddef.h>

#include <map>
#include <string>
#include <vector>

#include "client/service/config_state.h"
#include "client/show/report.h"
#include "client/volume/file_ref.h"

namespace client {

// Prices a pin, or an unpin, of files whose extents are filled. `repinned` are the files that would
// be pinned again, `requests` the number of requests by mount path. Returns a record for each
// volume, in the order of the files.
std::vector<Record> DescribePrices(bool pin, const std::vector<FileRef>& files,
                                   const std::vector<FileRef>& repinned,
                                   const std::map<std::string, size_t>& requests);

// Returns, for each volume of whose cache the files would have more pinned than it holds, the sum
// in words. What is queued to be pinned counts as pinned. A volume whose files need no further
// unit, or whose cache does not tell its size, is left out.
std::vector<std::string> FindOvercommits(const ConfigState& state,
                                         const std::vector<FileRef>& files);

}  // namespace client
