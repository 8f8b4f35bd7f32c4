// SPDX-License-Identifier: MIT
// The cache registry: one JSON file a cache, NAME.json, in /run/quorsoftcache or in the directory
// that the environment variable QUORSOFTCACHE_REGISTRY names. A cache's process keeps NAME.lock
// beside it locked (flock) as long as it lives; an entry whose lock nobody keeps is a leftover.
#pragma once

#include <stdint.h>

#include <string>
#include <vector>

namespace stand_in {

struct CacheEntry {
    std::string ssd;     // absolute path of the SSD file or device
    std::string device;  // absolute path of the cached device
    int32_t state;       // 1 = established and serving
    int32_t supportPin;  // 1 = keeps pinned blocks
};

struct CacheListing {
    std::vector<CacheEntry> caches;  // of the living ones, in the order of their file names
    bool complete;                   // false: there may be others, for something could not be read
};

// Lists the caches whose process lives. No directory means no caches. A leftover is passed over
// silently, a file that no cache wrote with a line. What cannot be read or asked for the moment is
// waited for a little; then a cache counts as living whose lock cannot be asked, and an entry as it
// was read the last time. Every line is said once as long as it stands.
CacheListing ReadCacheRegistry();

// As above, for the one cache on the SSD at `ssdPath`. Returns 1 when it is found, 0 when no living
// cache has that SSD, -1 when the listing is not complete and it is not among what was found.
// `cache` is stored only on 1.
int FindCacheBySsd(const std::string& ssdPath, CacheEntry& cache);

}  // namespace stand_in
