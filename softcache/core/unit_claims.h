// SPDX-License-Identifier: MIT
// Who works on which units: one operation at a time on a unit, any number on different ones.
#pragma once

#include <stdint.h>

#include <condition_variable>
#include <list>
#include <mutex>

namespace softcache {

class UnitClaims {
  public:
    // True while somebody holds `unit` or waits for it.
    bool IsClaimed(uint32_t unit) const;

  private:
    friend class UnitClaim;

    struct Range {
        uint32_t first;
        uint32_t last;
    };

    mutable std::mutex mutex_;
    std::condition_variable released_;
    std::list<Range> claims_;  // in order of arrival, those that still wait included
};

// The units [first, last] belong to its holder from construction to destruction. Claims that
// overlap are served in order of arrival, so a wide one is never starved; a thread holds one at a
// time, so nobody waits in a circle.
class UnitClaim {
  public:
    UnitClaim(UnitClaims& claims, uint32_t first, uint32_t last);
    ~UnitClaim();
    UnitClaim(const UnitClaim&) = delete;
    UnitClaim& operator=(const UnitClaim&) = delete;

  private:
    UnitClaims& claims_;
    std::list<UnitClaims::Range>::iterator mine_;
};

}  // namespace softcache
