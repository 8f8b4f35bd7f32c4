// SPDX-License-Identifier: MIT
#include "softcache/unit_table.h"

#include <algorithm>

#include "tests/unit/softcache/test_files.h"

namespace softcache {
namespace {

bool Nobody(uint32_t) {
    return false;
}

// What a read of an absent unit does. Returns the slot, or kNoSlot.
uint32_t Load(UnitTable& table, uint32_t unit) {
    const uint32_t slot = table.TakeSlot(Nobody);
    if (slot != kNoSlot) {
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
    const uint32_t slot = table.TakeSlot([](uint32_t unit) { return unit == 0; });
    ASSERT_NE(slot, kNoSlot);
    EXPECT_EQ(Resident(table), (Units{0}));
    EXPECT_EQ(table.TakeSlot([](uint32_t) { return true; }), kNoSlot);
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

TEST(UnitTable, NextResidentLooksAtTheRangeAndNoFurther) {
    UnitTable table(10, 4);
    Load(table, 2);
    Load(table, 9);
    EXPECT_EQ(table.NextResident(0, 9), 2u);
    EXPECT_EQ(table.NextResident(2, 2), 2u);
    EXPECT_EQ(table.NextResident(3, 8), kNoUnit);
    EXPECT_EQ(table.NextResident(3, 9), 9u);
    EXPECT_EQ(table.NextResident(10, 9), kNoUnit);
}

TEST(CountBits, CountsEveryBitOfEveryByte) {
    EXPECT_EQ(CountBits({}), 0u);
    EXPECT_EQ(CountBits({0x00, 0x81, 0xFF}), 10u);
}

}  // namespace
}  // namespace softcache
