// SPDX-License-Identifier: MIT
// What is pinned, and what the cache shows of itself.
#include "softcache/block_cache.h"

namespace softcache {

void BlockCache::SetPins(std::vector<uint8_t> bitmap) {
    const std::lock_guard<std::mutex> lock(mutex_);
    table_.SetPins(std::move(bitmap));
}

std::vector<uint8_t> BlockCache::ResidentBitmap() const {
    const std::lock_guard<std::mutex> lock(mutex_);
    const uint32_t units = table_.Units();
    std::vector<uint8_t> bitmap((size_t{units} + 7) / 8, 0);
    for (uint32_t unit = 0; unit < units; ++unit) {
        if (table_.Find(unit) != kNoSlot) {
            bitmap[unit / 8] = static_cast<uint8_t>(bitmap[unit / 8] | (1u << (unit % 8)));
        }
    }
    return bitmap;
}

CacheCounters BlockCache::Counters() const {
    const std::lock_guard<std::mutex> lock(mutex_);
    return counters_;
}

CacheLevels BlockCache::Levels() const {
    const std::lock_guard<std::mutex> lock(mutex_);
    return {table_.Units(),          table_.Slots(),   table_.Resident(),
            table_.PinnedResident(), table_.Retired(), table_.Pinned()};
}

void BlockCache::ResetCounters() {
    const std::lock_guard<std::mutex> lock(mutex_);
    counters_ = CacheCounters();
}

}  // namespace softcache
