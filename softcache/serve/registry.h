// SPDX-License-Identifier: MIT
// The cache's entry in the registry, by which the rest of the system finds it: one JSON file a
// cache, `<directory>/<name>.json`, there exactly as long as the cache serves.
//
// The cache keeps flock(LOCK_EX) on `<directory>/<name>.lock` for as long as it lives, so an entry
// whose lock can be had, or is not there, belongs to a cache that is gone. Caches that start or end
// take `<directory>/.lock` meanwhile. Both are files of mode 0600: whoever can open a file can lock
// it, and an entry is for everybody to read. A change of state replaces the entry in one step.
#pragma once

#include <stdint.h>

#include <mutex>
#include <string>

#include "softcache/store/file_io.h"

namespace softcache {

// QUORSOFTCACHE_REGISTRY, or /run/quorsoftcache.
std::string DefaultRegistryDirectory();

// The members of an entry. Paths are absolute.
struct RegistryRecord {
    std::string name;
    std::string ssd;
    std::string mountPoint;
    int32_t state = 1;        // 1 = established and serving
    bool supportPin = true;   // keeps pinned units
    uint64_t deviceSize = 0;  // bytes
    uint64_t cacheSize = 0;   // bytes
};

// An empty text, or why no cache may be served under this name: not fit for a file name, another
// cache serves under it now, or that cannot be found out.
std::string WhyNotServe(const std::string& directory, const std::string& name);

// Safe to use from any number of threads.
class RegistryEntry {
  public:
    RegistryEntry(std::string directory, RegistryRecord record);

    // Writes the entry; the directory is made when it is missing. Returns an empty text, or why
    // not.
    std::string Publish();

    // Change the record, and the entry when there is one. Return 0, or -errno with nothing changed.
    int SetState(int32_t state);
    int SetSupportPin(bool supportPin);

    // Takes the entry away, if it is still this cache's own.
    void Remove();

  private:
    int Change(const RegistryRecord& changed);
    int Write(const RegistryRecord& record);

    const std::string directory_;
    std::mutex mutex_;
    RegistryRecord record_;
    OwnedFd lock_;   // as long as the entry stands
    OwnedFd entry_;  // the file that stands there; none before Publish and after Remove
};

}  // namespace softcache
