// SPDX-License-Identifier: MIT
// The units of a volume laid out in cells.
#include "client/map/picture.h"

#include <gtest/gtest.h>

namespace client {

namespace {

VolumeView View(const std::vector<uint8_t>& bits, const std::vector<uint8_t>& resident) {
    VolumeView view;
    view.bits = UnitSet(bits);
    view.residency.known = !resident.empty();
    view.residency.resident = UnitSet(resident);
    view.residency.cacheSize = 1 << 20;
    return view;
}

std::vector<std::string> Legend(const Picture& picture) {
    std::vector<std::string> texts;
    for (const LegendLine& line : LegendOf(picture)) {
        texts.push_back(line.text);
    }
    return texts;
}

TEST(Picture, ACellSaysWhatIsPinnedAndWhatTheCacheHolds) {
    const Picture picture = MakePicture(View({0x03, 0}, {0x05, 0}), 0, 16, 8);
    const std::vector<CellRun> runs = RunsOfRow(picture, 0);
    ASSERT_EQ(runs.size(), 4U);
    EXPECT_EQ(runs[0].cell, (Cell{kFullLevel, 0, false}));
    EXPECT_EQ(runs[1].cell, (Cell{kFullLevel, 0, true}));
    EXPECT_EQ(runs[2].cell, (Cell{0, kFullLevel, false}));
    EXPECT_EQ(runs[3].cell, (Cell{0, 0, false}));
    EXPECT_EQ(runs[3].first, 3U);
    EXPECT_EQ(runs[3].end, 16U);
    EXPECT_EQ(runs[3].cells, 13U);
    EXPECT_EQ(Legend(picture),
              (std::vector<std::string>{"pinned, in the cache: 1 unit = 64.0 KiB",
                                        "pinned, not in the cache: 1 unit = 64.0 KiB",
                                        "in the cache, not pinned: 1 unit = 64.0 KiB",
                                        "neither: 13 units = 832.0 KiB"}));
    EXPECT_EQ(picture.size, "1.0 MiB in 16 units of 64 KiB, a cache of 1.0 MiB");
}

TEST(Picture, ACacheThatTellsNothingLacksNothing) {
    const Picture picture = MakePicture(View({0x03, 0}, {}), 0, 16, 8);
    const std::vector<CellRun> runs = RunsOfRow(picture, 0);
    ASSERT_EQ(runs.size(), 2U);
    EXPECT_EQ(runs[0].cell, (Cell{kFullLevel, 0, false}));
    EXPECT_EQ(Legend(picture), (std::vector<std::string>{"pinned: 2 units = 128.0 KiB",
                                                         "not pinned: 14 units = 896.0 KiB"}));
    EXPECT_EQ(picture.size, "1.0 MiB in 16 units of 64 KiB");
}

TEST(Picture, ACellOfSeveralUnitsShowsBoth) {
    std::vector<uint8_t> bits(4096 / 8);
    std::vector<uint8_t> resident(4096 / 8, 0xff);
    bits[0] = 0x01;
    resident[1] = 0x3f;
    const Picture picture = MakePicture(View(bits, resident), 0, 16, 16);
    EXPECT_EQ(picture.grid.unitsPerCell, 16U);
    const std::vector<CellRun> runs = RunsOfRow(picture, 0);
    ASSERT_EQ(runs.size(), 2U);
    EXPECT_EQ(runs[0].cell, (Cell{1, 3, false})) << "one is pinned, thirteen are there besides";
    EXPECT_EQ(runs[1].cell, (Cell{0, kFullLevel, false}));
    EXPECT_EQ(HeightsText(picture.grid),
              "a square is 16 units = 1.0 MiB; filled by a quarter: some, a half: 256.0 KiB and "
              "more, three quarters: 512.0 KiB and more, the whole: all");
}

// 0.01 % of 4 TiB, in two places.
TEST(Picture, AFewFilesOfALargeDeviceAreSeenInDetail) {
    VolumeView view;
    view.bits = UnitSet(8 << 20);
    view.bits.Put({{1 << 20, (1 << 20) + 3000}, {50 << 20, (50 << 20) + 3700}});
    const Picture picture = MakePicture(view, 0, 128, 96);
    EXPECT_EQ(picture.grid.unitsPerCell, 1U);
    EXPECT_EQ(picture.grid.rows.size(), 24U + 29U);
    const Cell full = {kFullLevel, 0, false};
    EXPECT_EQ(RunsOfRow(picture, 0).front().cell, full);
    EXPECT_EQ(RunsOfRow(picture, 0).front().cells, 128U);
}

// The blocks of a file system's own lie in every part of a device.
TEST(Picture, UnitsThatAreSpreadLeaveTheRoomToTheFiles) {
    VolumeView view;
    view.bits = UnitSet(8 << 20);
    view.bits.Put({{1 << 25, (1 << 25) + 255}});
    view.residency.known = true;
    view.residency.resident = UnitSet(8 << 20);
    for (uint64_t unit = 0; unit < view.bits.Room(); unit += 2048) {
        view.residency.resident.Put(unit);
    }
    view.residency.resident.Put({{1 << 20, (1 << 20) + 200}});
    const Picture picture = MakePicture(view, 0, 128, 96);
    EXPECT_EQ(picture.grid.unitsPerCell, 1U);
    EXPECT_EQ(picture.grid.rows,
              (std::vector<uint64_t>{1 << 20, (1 << 20) + 128, 1 << 25, (1 << 25) + 128}));
    EXPECT_EQ(LeftOutText(picture, 0), "64.0 GiB with nothing pinned, 512 units in the cache");
    EXPECT_EQ(LeftOutText(picture, 1), "");
    view.bits = UnitSet(8 << 20);
    EXPECT_GT(MakePicture(view, 0, 128, 96).grid.rows.size(), 4U) << "they are all there is";
}

TEST(Picture, WhatTheCacheHoldsBehindTheLastBitHasNoPlace) {
    const Picture picture = MakePicture(View({0x01}, {0xff, 0xff}), 0, 16, 8);
    EXPECT_EQ(Legend(picture)[2], "in the cache, not pinned: 7 units = 448.0 KiB");
    EXPECT_EQ(Legend(picture)[3], "neither: 0 units = 0 bytes");
}

}  // namespace

}  // namespace client
