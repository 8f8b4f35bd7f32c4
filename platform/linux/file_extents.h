// SPDX-License-Identifier: MIT
// The extents of an open file.
#pragma once

#include <string>
#include <vector>

#include "platform/quordataverifier.h"

namespace stand_in {

// Stores the extents that have a place on the volume's block device, in file order. Extents without
// one (delayed allocation, data inside the inode, compressed) give no entry. The file is not synced
// first. `path` is for messages only. Returns false, having said why, with `entries` untouched.
bool ReadFileExtents(int fd, const std::string& path, std::vector<FileMappingEntry>& entries);

}  // namespace stand_in
