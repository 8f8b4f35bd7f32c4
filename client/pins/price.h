// SPDX-License-Identifier: MIT
// What pinning or unpinning would cost, worked out without sending anything.
#pragma once

#include <stddef.h>

#include <map>
#include <string>
#include <vector>

#include "client/show/report.h"
#include "client/volume/file_ref.h"

namespace client {

// Prices a pin, or an unpin, of files whose extents are filled. `repinned` are the files that would
// be pinned again, `requests` the number of requests by mount path. Returns a record for each
// volume, in the order of the files.
std::vector<Record> DescribePrices(bool pin, const std::vector<FileRef>& files,
                                   const std::vector<FileRef>& repinned,
                                   const std::map<std::string, size_t>& requests);

}  // namespace client
