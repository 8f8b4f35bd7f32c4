// SPDX-License-Identifier: MIT
// Which cache stands before a volume's block device.
#pragma once

#include <vector>

#include "platform/linux/cache_registry.h"
#include "platform/linux/mount_table.h"

namespace stand_in {

// Stores the cache whose cached device is this block device, or backs this loop device from its
// first sector to its last. Returns 1 when it is found, 0 when none of `caches` is it, -1, having
// said why, when that could not be found out.
// Sectors mean the same on both only then: a loop device with an offset or a size limit has no
// cache, and the system log says so.
int FindCacheOf(const BlockDevice& device, const std::vector<CacheEntry>& caches,
                CacheEntry& found);

}  // namespace stand_in
