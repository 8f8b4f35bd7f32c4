// SPDX-License-Identifier: MIT
// What the files of BlockCache share among themselves.
#pragma once

#include <utility>
#include <vector>

#include "softcache/block_cache.h"

namespace softcache {

inline uint64_t UnitStart(uint32_t unit) {
    return uint64_t{unit} * kUnitSize;
}

inline uint32_t UnitAt(uint64_t offset) {
    return static_cast<uint32_t>(offset / kUnitSize);
}

// These slots, whose units the caller has claimed, are open on the SSD from construction to
// destruction; or the SSD is lost.
class BlockCache::OpenSlots {
  public:
    OpenSlots(BlockCache& cache, std::vector<uint32_t> slots)
        : cache_(cache), slots_(std::move(slots)) {
        cache_.Open(slots_);
    }
    ~OpenSlots() { cache_.Leave(slots_); }
    OpenSlots(const OpenSlots&) = delete;
    OpenSlots& operator=(const OpenSlots&) = delete;

  private:
    BlockCache& cache_;
    const std::vector<uint32_t> slots_;
};

}  // namespace softcache
