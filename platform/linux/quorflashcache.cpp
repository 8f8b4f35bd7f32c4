// SPDX-License-Identifier: MIT
// libquorflashcache for plain Linux: the cached device of an SSD, out of the cache registry.
#include "platform/quorflashcache.h"

#include <string.h>

#include "platform/linux/cache_registry.h"
#include "platform/linux/report.h"

using namespace stand_in;

namespace stand_in {
const char* const kLibraryName = "libquorflashcache";
}

int QUORFlashcacheGetCachePath(const char* ssdPath, char* path, size_t size) {
    if (ssdPath == nullptr || path == nullptr) {
        return -1;
    }
    CacheEntry cache;
    const int result = FindCacheBySsd(ssdPath, cache);
    if (result != 1) {
        return result;
    }
    if (cache.device.size() >= size) {  // half a path would name another file
        Report("cached device %s of SSD %s does not fit into %zu bytes", cache.device.c_str(),
               ssdPath, size);
        return -1;
    }
    memcpy(path, cache.device.c_str(), cache.device.size() + 1);
    return 1;
}
