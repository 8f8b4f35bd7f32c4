// SPDX-License-Identifier: MIT
// The cache in front of a volume's block device.
#pragma once

#include <vector>

#include "platform/linux/cache_registry.h"
#include "platform/linux/mount_table.h"

namespace stand_in {

// Stores the cache whose cached device is this block device, or backs this loop device from the
// first sector to the last: only then does a sector number mean the same on both. A loop device
// with an offset or a size limit has no cache, and the system log says so. Returns 1 when a cache
// is found, 0 when it is none of `caches`, -1 when that could not be found out, having said why.
int FindCacheOf(const BlockDevice& device, const std::vector<CacheEntry>& caches,
                CacheEntry& found);

}  // namespace stand_in
