// SPDX-License-Identifier: MIT
// The picture's bytes against the bitmap that it was made of.
#include <gtest/gtest.h>

#include <random>
#include <regex>

#include "client/map/picture.h"
#include "tests/unit/support/unit_test.h"

namespace client {

namespace {

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
    const bool resident = view.residency.resident.Has(unit);
    if (!view.residency.known) {
        return CellColour(view.bits.Has(unit) ? kCellPinned : kCellFree);
    }
    return CellColour(view.bits.Has(unit) ? resident ? kCellPinned : kCellPinnedAbsent
                      : resident          ? kCellResident
                                          : kCellFree);
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
