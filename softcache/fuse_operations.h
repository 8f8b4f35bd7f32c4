// SPDX-License-Identifier: MIT
// The FUSE requests of the mount, each answered from a ServedCache.
#pragma once

#define FUSE_USE_VERSION 312
#include <fuse3/fuse_lowlevel.h>

#include <stdint.h>

#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>

#include "softcache/served_cache.h"

namespace softcache {

// The contents of the open files that are only looked at, each as it was when the file was opened.
// Kept here rather than behind the file handle alone: the kernel tells of the last closes late, or
// no more when serving ends.
class OpenSnapshots {
  public:
    // Returns the handle by which the content is found until it is dropped.
    uint64_t Keep(std::string content);
    std::shared_ptr<const std::string> Content(uint64_t handle) const;
    void Drop(uint64_t handle);

  private:
    mutable std::mutex mutex_;
    uint64_t lastHandle_ = 0;
    std::map<uint64_t, std::shared_ptr<const std::string>> contents_;
};

// The session's user data.
struct FuseContext {
    explicit FuseContext(ServedCache& servedCache) : served(servedCache) {}

    ServedCache& served;
    std::function<void()> onServing;  // called once, when the kernel has started the connection
    OpenSnapshots snapshots;
};

const fuse_lowlevel_ops& FuseOperations();

}  // namespace softcache
