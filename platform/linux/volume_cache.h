// SPDX-License-Identifier: MIT
// Which cache stands before a volume's block device.
#pragma once

#include <vector>

#include "platform/linux/cache_registry.h"
#include "platform/linux/mount_table.h"

// The cache whose cached device is this block device, or backs this loop device from its first
// sector to its last; null when there is none. Sectors mean the same on both only then: a loop
// device with an offset or a size limit has no cache, and the system log says so.
const CacheEntry* FindCacheOf(const BlockDevice& device, const std::vector<CacheEntry>& caches);
