// SPDX-License-Identifier: MIT
// Rows of cells: what is shown, what is left out, and how high.
#include "client/map/grid.h"

#include <gtest/gtest.h>

namespace client {

namespace {

constexpr uint64_t k4TiB = uint64_t{1} << 26;  // units

UnitSet SetOf(uint64_t room, const UnitRuns& runs) {
    UnitSet set(static_cast<size_t>(room / 8));
    set.Put(runs);
    return set;
}

TEST(Grid, WhatFitsIsShownWhole) {
    const UnitSet set = SetOf(1024, {{3, 3}});
    const Grid grid = LayOut(1024, {&set}, 64, 16);
    EXPECT_EQ(grid.unitsPerCell, 1U);
    ASSERT_EQ(grid.rows.size(), 16U);
    for (size_t row = 0; row < 16; ++row) {
        EXPECT_EQ(grid.rows[row], row * 64);
        EXPECT_EQ(LeftOutBefore(grid, row), 0U);
        EXPECT_EQ(HasLabel(grid, row, 4), row % 4 == 0) << row;
    }
    EXPECT_EQ(LeftOutBefore(grid, 16), 0U);
}

// Two files of 64 MiB on 4 TiB are seen unit by unit.
TEST(Grid, OnALargeDeviceTheRestGivesWay) {
    const UnitSet pinned = SetOf(k4TiB, {{1 << 20, (1 << 20) + 1023}});
    const UnitSet other = SetOf(k4TiB, {{40 << 20, (40 << 20) + 1023}});
    const Grid grid = LayOut(k4TiB, {&pinned, &other}, 128, 16);
    EXPECT_EQ(grid.unitsPerCell, 1U);
    ASSERT_EQ(grid.rows.size(), 16U);
    EXPECT_EQ(grid.rows[0], 1U << 20);
    EXPECT_EQ(grid.rows[8], 40U << 20);
    EXPECT_EQ(LeftOutBefore(grid, 0), 1U << 20);
    EXPECT_EQ(LeftOutBefore(grid, 1), 0U);
    EXPECT_EQ(LeftOutBefore(grid, 8), (39U << 20) - 1024);
    EXPECT_EQ(LeftOutBefore(grid, 16), k4TiB - (40U << 20) - 1024);
    EXPECT_TRUE(HasLabel(grid, 8, 16)) << "the first row behind what was left out";
    EXPECT_FALSE(HasLabel(grid, 9, 16));
    EXPECT_EQ(LeftOutText(k4TiB / 2), "2.0 TiB with nothing");
}

TEST(Grid, CellsGrowUntilTheRowsThatMatterFit) {
    UnitSet set(static_cast<size_t>(k4TiB / 8));
    for (uint64_t unit = 0; unit < k4TiB; unit += k4TiB / 64) {
        set.Put(unit);
    }
    const Grid grid = LayOut(k4TiB, {&set}, 128, 16);
    ASSERT_EQ(grid.rows.size(), 16U);
    EXPECT_EQ(grid.unitsPerCell, k4TiB / 16 / 128);
    for (size_t row = 0; row < 16; ++row) {
        EXPECT_EQ(LeftOutBefore(grid, row), 0U) << "all of the device";
    }
}

TEST(Grid, ASingleRowWithNothingStays) {
    const UnitSet set = SetOf(k4TiB, {{128, 255}, {384, 511}, {1024, 1151}});
    const Grid grid = LayOut(k4TiB, {&set}, 128, 16);
    EXPECT_EQ(grid.rows, (std::vector<uint64_t>{128, 256, 384, 1024}));
}

TEST(Grid, ADeviceWithNothingHasNoRows) {
    const UnitSet set = SetOf(k4TiB, {});
    const Grid grid = LayOut(k4TiB, {&set}, 128, 16);
    EXPECT_TRUE(grid.rows.empty());
    EXPECT_EQ(LeftOutBefore(grid, 0), k4TiB);
    EXPECT_TRUE(LayOut(0, {&set}, 128, 16).rows.empty());
}

TEST(Grid, TheLastRowAndCellEndWithTheDevice) {
    const UnitSet set = SetOf(1000, {{0, 999}});
    const Grid grid = LayOut(1000, {&set}, 16, 16);
    EXPECT_EQ(grid.unitsPerCell, 4U);
    ASSERT_EQ(grid.rows.size(), 16U);
    EXPECT_EQ(grid.rows.back(), 960U);
    EXPECT_EQ(grid.RowEnd(960), 1000U);
    EXPECT_EQ(grid.RowEnd(0), 64U);
    EXPECT_EQ(grid.CellEnd(996), 1000U);
    EXPECT_EQ(grid.CellEnd(999), 1000U);
    EXPECT_EQ(LeftOutBefore(grid, 16), 0U);
}

struct LevelRow {
    uint64_t unitsPerCell;
    std::vector<unsigned> levels;      // of 0, 1, ... units
    std::vector<std::string> meaning;  // from level 1 on
};

TEST(Grid, LevelsAreStepsOfEqualRatio) {
    const LevelRow rows[] = {
        {1, {0, 4}, {"all"}},
        {2, {0, 1, 4}, {"some", "all"}},
        {4, {0, 1, 2, 2, 4}, {"some", "128.0 KiB and more", "all"}},
        {8,
         {0, 1, 2, 2, 3, 3, 3, 3, 4},
         {"some", "128.0 KiB and more", "256.0 KiB and more", "all"}},
    };
    for (const LevelRow& row : rows) {
        const Grid grid = {1024, row.unitsPerCell, 16, {}};
        std::vector<unsigned> levels;
        std::vector<std::string> meaning;
        for (uint64_t count = 0; count <= row.unitsPerCell; ++count) {
            levels.push_back(LevelOf(grid, count, row.unitsPerCell));
        }
        for (const LevelMeaning& one : LevelsOf(grid)) {
            meaning.push_back(one.text);
        }
        EXPECT_EQ(levels, row.levels) << row.unitsPerCell;
        EXPECT_EQ(meaning, row.meaning) << row.unitsPerCell;
    }
    const Grid large = {k4TiB, 1 << 15, 128, {}};
    EXPECT_EQ(LevelOf(large, 31, 1 << 15), 1U);
    EXPECT_EQ(LevelOf(large, 32, 1 << 15), 2U);
    EXPECT_EQ(LevelOf(large, 1023, 1 << 15), 2U);
    EXPECT_EQ(LevelOf(large, 1024, 1 << 15), 3U);
    EXPECT_EQ(LevelOf(large, (1 << 15) - 1, 1 << 15), 3U);
    EXPECT_EQ(LevelOf(large, 7, 7), kFullLevel) << "a short last cell";
}

// Never 3.8 GiB for 3840 MiB.
TEST(Grid, RowsBeginAtWholeNumbers) {
    EXPECT_EQ(RowLabel({4096, 4, 64, {}}, 3840), "240 MiB");
    EXPECT_EQ(RowLabel({65536, 64, 64, {}}, 61440), "3840 MiB");
    EXPECT_EQ(RowLabel({1 << 20, 1 << 10, 64, {}}, 15 << 16), "60 GiB");
    EXPECT_EQ(RowLabel({16, 1, 1, {}}, 3), "192 KiB");
    EXPECT_EQ(RowLabel({k4TiB, 1 << 20, 128, {}}, 0), "0 TiB");
}

}  // namespace

}  // namespace client
