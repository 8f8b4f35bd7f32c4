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
    return view;
}

TEST(Picture, ACellSaysWhatIsPinnedAndWhatTheCacheHolds) {
    const Picture known = MakePicture(View({0x03, 0}, {0x05, 0}));
    EXPECT_EQ(known.cells[0], kCellPinned);
    EXPECT_EQ(known.cells[1], kCellPinnedAbsent);
    EXPECT_EQ(known.cells[2], kCellResident);
    EXPECT_EQ(known.cells[3], kCellFree);
    EXPECT_EQ(known.counts, (std::array<uint64_t, kCellStates>{0, 13, 1, 1, 1}));
    EXPECT_EQ(LegendOf(known).size(), 4U);
    EXPECT_STREQ(CellMeaning(known, kCellPinned), "pinned, in the cache");
    const Picture unknown = MakePicture(View({0x03, 0}, {}));
    EXPECT_EQ(unknown.cells[1], kCellPinned) << "a cache that says nothing lacks nothing";
    EXPECT_EQ(LegendOf(unknown).size(), 2U);
    EXPECT_STREQ(CellMeaning(unknown, kCellPinned), "pinned");
}

TEST(Picture, WhatLiesBehindTheLastUnitIsNoCell) {
    const Picture picture = MakePicture(View({0xff, 0xff, 0xff}, {}));
    ASSERT_EQ(picture.columns, 16U);
    ASSERT_EQ(picture.rows, 2U);
    EXPECT_EQ(picture.cells[23], kCellPinned);
    EXPECT_EQ(picture.cells[24], kCellNone);
}

TEST(Picture, TheFrameHoldsAllCellsAndTheLegend) {
    for (const size_t bytes : {0U, 1U, 100U, 40000U}) {
        const Picture picture = MakePicture(View(std::vector<uint8_t>(bytes), {}));
        const PictureFrame frame = FrameOf(picture);
        EXPECT_GE(frame.width, frame.left + picture.columns * frame.side) << bytes;
        EXPECT_GE(frame.height, frame.top + picture.rows * frame.side + 2 * 16) << bytes;
        EXPECT_GE(RowsPerLabel(frame) * frame.side, 48U) << "labels do not touch";
    }
}

TEST(Picture, ALargeVolumeIsDrawnInCellsOfSeveralUnits) {
    VolumeView view;
    view.bits = UnitSet(4 << 20);  // 2 TiB
    view.bits.Put(33);
    const Picture picture = MakePicture(view);
    EXPECT_EQ(picture.unitsPerCell, 32U);
    EXPECT_EQ(picture.cells[0], kCellFree);
    EXPECT_EQ(picture.cells[1], kCellPinned) << "one pinned unit shows";
    EXPECT_EQ(picture.counts[kCellPinned], 1U);
    EXPECT_EQ(picture.counts[kCellFree], (32ULL << 20) - 1);
}

}  // namespace

}  // namespace client
