// SPDX-License-Identifier: MIT
// The cache registry: one JSON file a cache, NAME.json, in /run/quorsoftcache or in the directory
// that the environment variable QUORSOFTCACHE_REGISTRY names. A cache's process keeps NAME.lock
// beside it locked (flock) as long as it lives; an entry whose lock nobody keeps is a leftover.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "platform/linux/registry_file.h"

namespace stand_in {

struct CacheListing {
    std::vector<CacheEntry> caches;  // of the living ones, in the order of their file names
    bool complete;                   // false: there may be more, as something could not be read
};

// Lists the caches whose process lives. No directory means no caches. A leftover is skipped
// silently; a file that no cache can have written is skipped with a line in the log.
//
// A file or lock that is unavailable for a moment is waited for a little. After that, a cache whose
// lock cannot be queried counts as living, and an entry that cannot be read counts as it was last
// read. Each line is logged once for as long as its cause lasts.
//
// Who asks often gets the list of the last call, the same object, as long as the kernel tells of no
// change in the directory and every lock is kept or free as it was. That another directory took
// its place is looked for every 10 ms.
std::shared_ptr<const CacheListing> ReadCacheRegistry();

// Looks in that list for the cache on the SSD at `ssdPath`. Returns 1 and stores it in `cache`, 0
// when no living cache has that SSD, -1 when it was not found and the list is not complete.
int FindCacheBySsd(const std::string& ssdPath, CacheEntry& cache);

}  // namespace stand_in
