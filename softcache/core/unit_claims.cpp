// SPDX-License-Identifier: MIT
#include "softcache/core/unit_claims.h"

#include <algorithm>

namespace softcache {

bool UnitClaims::IsClaimed(uint32_t unit) const {
    const std::lock_guard<std::mutex> lock(mutex_);
    return std::any_of(claims_.begin(), claims_.end(), [unit](const Range& range) {
        return range.first <= unit && unit <= range.last;
    });
}

UnitClaim::UnitClaim(UnitClaims& claims, uint32_t first, uint32_t last) : claims_(claims) {
    std::unique_lock<std::mutex> lock(claims_.mutex_);
    std::list<UnitClaims::Range>& all = claims_.claims_;
    mine_ = all.insert(all.end(), {first, last});
    claims_.released_.wait(lock, [&] {
        return std::none_of(all.begin(), mine_, [&](const UnitClaims::Range& earlier) {
            return earlier.first <= last && first <= earlier.last;
        });
    });
}

UnitClaim::~UnitClaim() {
    {
        const std::lock_guard<std::mutex> lock(claims_.mutex_);
        claims_.claims_.erase(mine_);
    }
    claims_.released_.notify_all();
}

}  // namespace softcache
