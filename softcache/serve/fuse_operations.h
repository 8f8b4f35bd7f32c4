// SPDX-License-Identifier: MIT
// The FUSE requests of the mount, each answered from a ServedCache.
#pragma once

#define FUSE_USE_VERSION 312
#include <fuse3/fuse_lowlevel.h>

#include <stdint.h>

#include <functional>

#include "softcache/serve/served_cache.h"
#include "softcache/serve/snapshots.h"

namespace softcache {

// The session's user data.
struct FuseContext {
    explicit FuseContext(ServedCache& servedCache) : served(servedCache) {}

    ServedCache& served;
    std::function<void()> onServing;  // called once, when the kernel has started the connection
    OpenSnapshots snapshots;
};

const fuse_lowlevel_ops& FuseOperations();

}  // namespace softcache
