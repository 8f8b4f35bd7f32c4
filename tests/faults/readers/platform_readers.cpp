// SPDX-License-Identifier: MIT
#include <fcntl.h>
#include <stdlib.h>
#include <sys/file.h>

#include "platform/linux/cache_registry.h"
#include "platform/linux/report.h"
#include "platform/quorcore.h"
#include "tests/faults/readers/readers.h"

namespace stand_in {

const char* const kLibraryName = "readers";

}  // namespace stand_in

namespace readers {

void ReadSettings(const Bytes& bytes) {
    const MemoryFile file(bytes);
    char value[128] = {};
    char shortest[1] = {};

    QLIBCFileGetKeyValue(file.Path().c_str(), "print_level", value, sizeof(value), 0);
    QLIBCFileGetKeyValue(file.Path().c_str(), "print_level", shortest, sizeof(shortest), 0);
}

// The entry of a cache that lives: somebody keeps its lock.
void ReadRegistry(const Bytes& bytes) {
    static const int lock = [] {
        setenv("QUORSOFTCACHE_REGISTRY", OwnDirectory().c_str(), 1);
        WriteFile(OwnDirectory() + "/one.lock", "");
        const int fd = open((OwnDirectory() + "/one.lock").c_str(), O_RDONLY | O_CLOEXEC);
        flock(fd, LOCK_EX);
        return fd;
    }();
    static_cast<void>(lock);
    stand_in::CacheEntry cache;
    WriteFile(OwnDirectory() + "/one.json", bytes);
    stand_in::ReadCacheRegistry();
    stand_in::FindCacheBySsd("/tmp/ssd", cache);
}

}  // namespace readers
