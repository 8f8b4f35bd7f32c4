// SPDX-License-Identifier: MIT
#include "softcache/store/unit_table.h"

#include <algorithm>

#include "tests/unit/softcache/test_files.h"

namespace softcache {
namespace {

bool Nobody(uint32_t) {
    return false;
}

// What a read of an absent unit does. Returns the slot, or kNoSlot.
uint32_t Load(UnitTable& table, uint32_t unit) {
    const uint32_t slot = table.NextRoom(Nobody);
    if (slot != kNoSlot) {
        table.Take(slot);
        table.Insert(slot, unit);
    }
    return slot;
}

std::vector<uint32_t> Resident(const UnitTable& table) {
    std::vector<uint32_t> units;
    for (uint32_t unit = 0; unit < table.Units(); ++unit) {
        if (table.Find(unit) != kNoSlot) {
            units.push_back(unit);
        }
    }
    return units;
}

using Units = std::vector<uint32_t>;

TEST(UnitTable, TheLeastRecentlyUsedUnitMakesRoom) {
    UnitTable table(10, 3);
    for (const uint32_t unit : {0u, 1u, 2u}) {
        Load(table, unit);
    }
    table.Touch(table.Find(0));
    Load(table, 3);
    EXPECT_EQ(Resident(table), (Units{0, 2, 3}));
    Load(table, 4);
    EXPECT_EQ(Resident(table), (Units{0, 3, 4}));
}

TEST(UnitTable, APinnedUnitNeverMakesRoom) {
    UnitTable table(16, 3);
    table.SetPins(Bitmap(2, {0, 9}));
    for (const uint32_t unit : {0u, 9u, 1u, 2u, 3u, 4u}) {
        Load(table, unit);
    }
    EXPECT_EQ(Resident(table), (Units{0, 4, 9}));
    EXPECT_EQ(table.PinnedResident(), 2u);
}

TEST(UnitTable, WhenEverySlotHoldsAPinnedUnitNoneCanBeTaken) {
    UnitTable table(8, 2);
    table.SetPins(Bitmap(1, {0, 1, 2}));
    Load(table, 0);
    Load(table, 1);
    EXPECT_EQ(Load(table, 2), kNoSlot);
    EXPECT_EQ(Load(table, 5), kNoSlot);
    EXPECT_EQ(Resident(table), (Units{0, 1}));
    EXPECT_EQ(table.Pinned(), 3u);
    EXPECT_EQ(table.PinnedResident(), 2u);
}

TEST(UnitTable, AReleasedUnitStandsWhereItsLastUseLeftIt) {
    UnitTable table(16, 4);
    table.SetPins(Bitmap(1, {1, 3}));
    for (const uint32_t unit : {0u, 1u, 2u, 3u}) {
        Load(table, unit);
    }
    table.SetPins(Bitmap(1, {0}));  // 1 and 3 are released, 0 is the oldest and stays
    Load(table, 8);
    EXPECT_EQ(Resident(table), (Units{0, 2, 3, 8}));
    Load(table, 9);
    EXPECT_EQ(Resident(table), (Units{0, 3, 8, 9}));
    Load(table, 10);
    EXPECT_EQ(Resident(table), (Units{0, 8, 9, 10}));
}

TEST(UnitTable, AUnitInUseIsPassedOver) {
    UnitTable table(8, 2);
    Load(table, 0);
    Load(table, 1);
    const uint32_t slot = table.NextRoom([](uint32_t unit) { return unit == 0; });
    ASSERT_NE(slot, kNoSlot);
    table.Take(slot);
    EXPECT_EQ(Resident(table), (Units{0}));
    EXPECT_EQ(table.NextRoom([](uint32_t) { return true; }), kNoSlot);
    table.Free(slot);
    EXPECT_EQ(Load(table, 7), slot) << "a slot given back is taken before anybody has to go";
}

TEST(UnitTable, ARetiredSlotIsNeverTakenAgain) {
    UnitTable table(8, 2);
    Load(table, 0);
    table.Retire(table.Find(0));
    EXPECT_EQ(Resident(table), Units{});
    Load(table, 1);
    Load(table, 2);
    EXPECT_EQ(Resident(table), Units{2});
    EXPECT_EQ(table.Retired(), 1u);
    table.Retire(table.Find(2));
    EXPECT_EQ(Load(table, 3), kNoSlot);
}

TEST(UnitTable, UnitsBeyondTheBitmapAreNotPinned) {
    UnitTable table(20, 4);
    table.SetPins(Bytes(2, 0xFF));
    EXPECT_TRUE(table.IsPinned(15));
    EXPECT_FALSE(table.IsPinned(16));
    EXPECT_EQ(table.Pinned(), 16u);
    table.SetPins({});
    EXPECT_FALSE(table.IsPinned(0));
    EXPECT_EQ(table.Pinned(), 0u);
}

TEST(UnitTable, ResidentInLooksAtTheRangeAndNoFurther) {
    UnitTable table(10, 4);
    Load(table, 9);
    Load(table, 2);
    EXPECT_EQ(table.ResidentIn(0, 9), (Units{2, 9}));
    EXPECT_EQ(table.ResidentIn(2, 2), Units{2});
    EXPECT_EQ(table.ResidentIn(3, 8), Units{});
    EXPECT_EQ(table.ResidentIn(8, 9), Units{9});
}

TEST(UnitTable, NextToGoIsTheOrderInWhichUnitsMakeRoom) {
    UnitTable table(10, 4);
    table.SetPins(Bitmap(1, {1}));
    for (const uint32_t unit : {3u, 1u, 2u, 0u}) {
        Load(table, unit);
    }
    table.Touch(table.Find(3));
    const std::vector<uint32_t> all = {table.Find(2), table.Find(0), table.Find(3)};
    EXPECT_EQ(table.NextToGo(9), all) << "a pinned one never";
    EXPECT_EQ(table.NextToGo(1), std::vector<uint32_t>{all[0]});
}

TEST(UnitTable, WhatIsRestoredHasItsPlaceInTheOrderOfUse) {
    UnitTable table(10, 4);
    table.SetPins(Bitmap(1, {6}));
    table.Restore(2, 5, 100);
    table.Restore(0, 6, 100);
    table.Restore(3, 7, UINT32_MAX - 1);
    EXPECT_EQ(Resident(table), (Units{5, 6, 7}));
    EXPECT_EQ(table.LastUse(2), 100u);
    EXPECT_EQ(Load(table, 8), 1u) << "the one that is free";
    EXPECT_EQ(Load(table, 9), 2u) << "then that of the oldest, though the clock has run round";
    EXPECT_EQ(Resident(table), (Units{6, 7, 8, 9}));
    table.SetPins({});
    EXPECT_EQ(table.NextToGo(4), (std::vector<uint32_t>{0, 3, 1, 2}));
}

TEST(UnitTable, ManyUnitsAreFoundAgain) {
    UnitTable table(1 << 24, 1000);
    for (uint32_t round = 0; round < 3000; ++round) {
        Load(table, round * 5000);  // equal distances
    }
    for (uint32_t round = 0; round < 3000; ++round) {
        const uint32_t slot = table.Find(round * 5000);
        ASSERT_EQ(slot != kNoSlot, round >= 2000) << round;
        ASSERT_TRUE(slot == kNoSlot || table.UnitIn(slot) == round * 5000);
    }
}

TEST(CountBits, CountsEveryBitOfEveryByte) {
    EXPECT_EQ(CountBits({}), 0u);
    EXPECT_EQ(CountBits({0x00, 0x81, 0xFF}), 10u);
}

}  // namespace
}  // namespace softcache
