// SPDX-License-Identifier: MIT
// A cache's two files as a start takes them: examined, opened, sized, and what the SSD held found
// again.
#pragma once

#include <stdint.h>

#include <memory>
#include <string>
#include <vector>

#include "softcache/store/file_io.h"
#include "softcache/store/ssd_recovery.h"
#include "softcache/store/ssd_store.h"

namespace softcache {

struct CacheFilesWanted {
    std::string name;      // of the cache
    std::string backing;   // path
    std::string ssd;       // path
    uint64_t ssdSize = 0;  // bytes of units; 0 = as many as the SSD has room for
    bool format = false;   // overwrite whatever the SSD holds
    std::string distrust;  // directory of the notes of SSDs that are not to be believed
};

struct CacheFiles {
    OwnedFd backingFd;
    OwnedFd ssdFd;
    std::unique_ptr<Disk> backing;
    std::unique_ptr<SsdStore> store;
    std::vector<WarmSlot> warm;
    std::vector<std::string> remarks;  // each a line that names its object
};

// Returns an empty text, or one line that names the object and what is wrong with it. Nothing is
// written before both files are known to be the right ones.
std::string OpenCacheFiles(const CacheFilesWanted& wanted, CacheFiles& files);

// Stores the UUID of what lies on a backing now; empty when it has none. Returns whether that could
// be found out.
bool ReadBackingUuid(const Disk& backing, std::string& uuid);

}  // namespace softcache
