// SPDX-License-Identifier: MIT
// What is pinned, and what the cache shows of itself.
#include "softcache/core/block_cache.h"

namespace softcache {

void BlockCache::SetPins(std::vector<uint8_t> bitmap) {
    const std::lock_guard<std::mutex> lock(mutex_);
    table_.SetPins(std::move(bitmap));
}

std::vector<uint8_t> BlockCache::ResidentBitmap() const {
    const std::lock_guard<std::mutex> lock(mutex_);
    const uint32_t units = table_.Units();
    std::vector<uint8_t> bitmap((size_t{units} + 7) / 8, 0);
    for (uint32_t slot = 0; slot < table_.Slots(); ++slot) {
        const uint32_t unit = table_.UnitIn(slot);
        if (unit != kNoUnit) {
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
    CacheLevels levels;
    levels.units = table_.Units();
    levels.cacheUnits = table_.Slots();
    levels.resident = table_.Resident();
    levels.pinnedResident = table_.PinnedResident();
    levels.retired = table_.Retired();
    levels.pinned = table_.Pinned();
    levels.unsettled = static_cast<uint32_t>(journal_.Size());
    return levels;
}

void BlockCache::ResetCounters() {
    const std::lock_guard<std::mutex> lock(mutex_);
    counters_ = CacheCounters();
}

}  // namespace softcache
