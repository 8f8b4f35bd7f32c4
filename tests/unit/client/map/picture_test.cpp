// SPDX-License-Identifier: MIT
// The units of a volume laid out in cells, and the picture's bytes against the bitmap that it was
// made of.
#include "client/map/picture.h"

#include <gtest/gtest.h>

#include <random>
#include <regex>

#include "client/map/picture.h"
#include "tests/unit/support/unit_test.h"

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
    EXPECT_STREQ(LegendOf(known)[0].meaning, "pinned, in the cache");
    const Picture unknown = MakePicture(View({0x03, 0}, {}));
    EXPECT_EQ(unknown.cells[1], kCellPinned) << "a cache that says nothing lacks nothing";
    EXPECT_EQ(LegendOf(unknown).size(), 2U);
    EXPECT_STREQ(LegendOf(unknown)[0].meaning, "pinned");
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
        EXPECT_GE(frame.rowsPerLabel * frame.side, 48U) << "labels do not touch";
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

VolumeView RandomView(unsigned seed, size_t bytes, bool cacheTells) {
    std::mt19937 random(seed);
    VolumeView view;
    view.mountPath = "/mnt/<pool>&1";
    std::vector<uint8_t> bits(bytes);
    std::vector<uint8_t> resident(bytes);
    for (size_t i = 0; i < bytes; ++i) {
        bits[i] = random() % 3 == 0 ? static_cast<uint8_t>(random()) : uint8_t{0};
        resident[i] = random() % 2 == 0 ? static_cast<uint8_t>(random()) : uint8_t{0};
    }
    view.bits = UnitSet(bits);
    view.residency.known = cacheTells;
    view.residency.resident = UnitSet(resident);
    view.residency.cacheSize = 1 << 20;
    return view;
}

// The colour that a unit must have.
uint32_t ExpectedColour(const VolumeView& view, uint64_t unit) {
    const bool resident = view.residency.known && view.residency.resident.Has(unit);
    if (view.bits.Has(unit)) {
        return resident || !view.residency.known ? 0x1f8a4c : 0xd1495b;
    }
    return resident ? 0x9ec5e8 : 0xe6e6e6;
}

struct PictureRow {
    const char* what;
    size_t bytes;  // of the bitmap
    bool cacheTells;
};

const PictureRow kRows[] = {
    {"one byte", 1, false},
    {"a cache that tells", 100, true},
    {"a last row that is not full", 77, true},
    {"a volume of 512 MiB", 1024, true},
    {"a volume of 20 GiB", 40000, false},
};

// The colour of each unit in the file, 1 where none is drawn. A rectangle of the legend stands
// below the cells.
std::vector<uint32_t> DrawnUnits(const Picture& picture, const std::string& text) {
    const std::regex rectangle(
        "<rect x=\"(\\d+)\" y=\"(\\d+)\" width=\"(\\d+)\" height=\"(\\d+)\" fill=\"#(\\w{6})\"/>");
    const PictureFrame frame = FrameOf(picture);
    std::vector<uint32_t> seen(picture.units, 1);
    for (std::sregex_iterator it(text.begin(), text.end(), rectangle), end; it != end; ++it) {
        const auto x = static_cast<uint32_t>(std::stoul((*it)[1]));
        const auto y = static_cast<uint32_t>(std::stoul((*it)[2]));
        const auto width = static_cast<uint32_t>(std::stoul((*it)[3]));
        if (y < frame.top || y >= frame.top + picture.rows * frame.side) {
            continue;
        }
        EXPECT_EQ(std::stoul((*it)[4]), frame.side);
        EXPECT_LE(x + width, frame.width);
        for (uint32_t at = x; at < x + width; at += frame.side) {
            const uint64_t unit =
                static_cast<uint64_t>((y - frame.top) / frame.side) * picture.columns +
                (at - frame.left) / frame.side;
            EXPECT_LT(unit, seen.size());
            EXPECT_EQ(seen.at(unit), 1U) << "drawn twice";
            seen[unit] = static_cast<uint32_t>(std::stoul((*it)[5], nullptr, 16));
        }
    }
    return seen;
}

TEST(PictureSvg, EveryUnitHasTheColourThatTheBitmapSays) {
    const TempDir dir;
    for (const PictureRow& row : kRows) {
        const VolumeView view = RandomView(11, row.bytes, row.cacheTells);
        const Picture picture = MakePicture(view);
        std::string why;
        ASSERT_EQ(picture.unitsPerCell, 1U) << row.what;
        ASSERT_TRUE(WriteSvg(picture, dir / "map.svg", why)) << why;
        const std::string text = ReadFile(dir / "map.svg");
        const std::vector<uint32_t> seen = DrawnUnits(picture, text);
        ASSERT_EQ(seen.size(), row.bytes * 8) << row.what;
        uint64_t wrong = 0;
        for (uint64_t unit = 0; unit < seen.size(); ++unit) {
            wrong += seen[unit] != ExpectedColour(view, unit) ? 1U : 0U;
        }
        EXPECT_EQ(wrong, 0U) << row.what;
        EXPECT_NE(text.find("/mnt/&lt;pool&gt;&amp;1"), std::string::npos);
    }
}

TEST(PictureSvg, TheLegendCountsEachStatesUnits) {
    const TempDir dir;
    VolumeView view;
    std::string why;
    view.bits = UnitSet({0x0f, 0});
    ASSERT_TRUE(WriteSvg(MakePicture(view), dir / "map.svg", why)) << why;
    const std::string text = ReadFile(dir / "map.svg");
    EXPECT_NE(text.find(">pinned: 4 units, 256.0 KiB<"), std::string::npos) << text;
    EXPECT_NE(text.find(">not pinned: 12 units, 768.0 KiB<"), std::string::npos) << text;
    EXPECT_NE(text.find(">a square is 1 unit, 64.0 KiB<"), std::string::npos) << text;
}

TEST(PictureSvg, AVolumeWithoutUnitsIsAPictureToo) {
    const TempDir dir;
    std::string why;
    EXPECT_TRUE(WriteSvg(MakePicture(VolumeView()), dir / "map.svg", why)) << why;
}

TEST(PictureSvg, WhatCannotBeWrittenIsSaid) {
    const TempDir dir;
    const Picture picture = MakePicture(RandomView(1, 10, false));
    for (const std::string& path : {dir / "nothing/map.svg", std::string("/dev/full")}) {
        std::string why;
        EXPECT_FALSE(WriteSvg(picture, path, why)) << path;
        EXPECT_NE(why.find(path), std::string::npos);
    }
}

}  // namespace

}  // namespace client
