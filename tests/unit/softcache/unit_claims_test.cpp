// SPDX-License-Identifier: MIT
#include "softcache/core/unit_claims.h"

#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <thread>
#include <vector>

namespace softcache {
namespace {

// Waits for another thread to have put its claim in the queue.
void AwaitClaimed(const UnitClaims& claims, uint32_t unit) {
    while (!claims.IsClaimed(unit)) {
        std::this_thread::yield();
    }
}

TEST(UnitClaims, HoldsARangeFromFirstToLastUntilItGoes) {
    UnitClaims claims;
    {
        const UnitClaim claim(claims, 3, 5);
        EXPECT_FALSE(claims.IsClaimed(2));
        EXPECT_TRUE(claims.IsClaimed(3));
        EXPECT_TRUE(claims.IsClaimed(5));
        EXPECT_FALSE(claims.IsClaimed(6));
        const UnitClaim beside(claims, 6, 6);  // does not wait
        EXPECT_TRUE(claims.IsClaimed(6));
    }
    EXPECT_FALSE(claims.IsClaimed(3));
    EXPECT_FALSE(claims.IsClaimed(6));
}

TEST(UnitClaims, AnOverlappingClaimWaits) {
    UnitClaims claims;
    std::atomic<bool> got{false};
    auto first = std::make_unique<UnitClaim>(claims, 0, 4);
    std::thread other([&] {
        const UnitClaim claim(claims, 4, 9);
        got = true;
    });
    AwaitClaimed(claims, 9);
    EXPECT_FALSE(got);
    first.reset();
    other.join();
    EXPECT_TRUE(got);
}

TEST(UnitClaims, AWideClaimIsNotOvertaken) {
    UnitClaims claims;
    std::atomic<int> order{0};
    int wide = 0;
    int late = 0;
    auto first = std::make_unique<UnitClaim>(claims, 0, 0);
    std::thread waitsForAll([&] {
        const UnitClaim claim(claims, 0, 9);
        wide = ++order;
    });
    AwaitClaimed(claims, 9);
    std::thread comesLater([&] {
        const UnitClaim claim(claims, 9, 20);  // free but for the one that waits
        late = ++order;
    });
    AwaitClaimed(claims, 20);
    EXPECT_EQ(order, 0);
    first.reset();
    waitsForAll.join();
    comesLater.join();
    EXPECT_EQ(wide, 1);
    EXPECT_EQ(late, 2);
}

TEST(UnitClaims, NeverTwoOnOneUnit) {
    constexpr uint32_t kUnits = 8;
    UnitClaims claims;
    std::atomic<int> holders[kUnits] = {};
    std::atomic<bool> shared{false};
    std::vector<std::thread> threads;
    for (uint32_t seed = 0; seed < 4; ++seed) {
        threads.emplace_back([&, seed] {
            for (uint32_t round = 0; round < 2000; ++round) {
                const uint32_t first = (round * 7 + seed * 3) % kUnits;
                const uint32_t last = std::min(kUnits - 1, first + round % 3);
                const UnitClaim claim(claims, first, last);
                for (uint32_t unit = first; unit <= last; ++unit) {
                    shared = shared || ++holders[unit] != 1;
                }
                for (uint32_t unit = first; unit <= last; ++unit) {
                    --holders[unit];
                }
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_FALSE(shared);
}

}  // namespace
}  // namespace softcache
