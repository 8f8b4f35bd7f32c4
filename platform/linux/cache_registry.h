// SPDX-License-Identifier: MIT
// The cache registry: one JSON file a cache, NAME.json, in /run/quorsoftcache or in the directory
// that the environment variable QUORSOFTCACHE_REGISTRY names. A cache's process keeps its file
// locked (flock) as long as it lives; a file that nobody locks is a leftover.
#pragma once

#include <stdint.h>

#include <string>
#include <vector>

struct CacheEntry {
    std::string ssd;     // absolute path of the SSD file or device
    std::string device;  // absolute path of the cached device
    int32_t state;       // 1 = established and serving
    int32_t supportPin;  // 1 = keeps pinned blocks
};

// Stores the entries of the caches whose process lives, in the order of their file names. No
// directory means no caches. A file that is damaged is named in the system log, once as long as it
// stays, and passed over; a leftover is passed over silently. Returns false, having said why, when
// the directory cannot be read; `caches` is then untouched.
bool ReadCacheRegistry(std::vector<CacheEntry>& caches);

// As above, for the one cache on the SSD at `ssdPath`. Returns 1 when it is found, 0 when no living
// cache has that SSD, -1 when the registry cannot be read. `cache` is stored only on 1.
int FindCacheBySsd(const std::string& ssdPath, CacheEntry& cache);
