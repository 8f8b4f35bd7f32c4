// SPDX-License-Identifier: MIT
// The document's rectangles against the bits that it was made of.
#include "client/map/picture_svg.h"

#include <gtest/gtest.h>

#include <random>
#include <regex>

#include "client/show/text.h"

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

// What a cell looks like: how much of its height, from below, has which colour on top of which.
using Look = std::vector<std::pair<double, uint32_t>>;

// The look that the units of a cell demand.
Look ExpectedLook(const VolumeView& view, const Grid& grid, uint64_t first) {
    uint64_t pinned = 0;
    uint64_t besides = 0;
    bool absent = false;
    const uint64_t end = grid.CellEnd(first);
    for (uint64_t unit = first; unit < end; ++unit) {
        const bool bit = view.bits.Has(unit);
        const bool resident = view.residency.known && view.residency.resident.Has(unit);
        pinned += bit ? 1U : 0U;
        besides += !bit && resident ? 1U : 0U;
        absent |= bit && view.residency.known && !resident;
    }
    Look look = {{1, 0xf4f5f7}};
    if (besides > 0) {
        look.emplace_back(LevelOf(grid, besides, end - first) / 4.0, 0x86c5ec);
    }
    if (pinned > 0) {
        look.emplace_back(LevelOf(grid, pinned, end - first) / 4.0, absent ? 0xd55e00 : 0x00315f);
    }
    return look;
}

// The looks of a row's cells as drawn.
std::vector<Look> DrawnLooks(const std::string& row) {
    static const std::regex rectangle(
        R"re(<rect x="(\d+)" y="([\d.]+)" width="(\d+)" height="([\d.]+)" fill="#(\w{6})"/>)re");
    std::vector<Look> looks;
    for (std::sregex_iterator it(row.begin(), row.end(), rectangle), end; it != end; ++it) {
        const size_t x = std::stoul((*it)[1]);
        const size_t width = std::stoul((*it)[3]);
        const double height = std::stod((*it)[4]);
        EXPECT_EQ(std::stod((*it)[2]) + height, 1) << "stands on the row's bottom";
        looks.resize(std::max(looks.size(), x + width));
        for (size_t at = x; at < x + width; ++at) {
            looks[at].emplace_back(height,
                                   static_cast<uint32_t>(std::stoul((*it)[5], nullptr, 16)));
        }
    }
    return looks;
}

std::vector<std::string> DrawnRows(const std::string& text) {
    static const std::regex group(R"re(<g class="row"[^>]*>(.*)</g>)re");
    std::vector<std::string> rows;
    for (std::sregex_iterator it(text.begin(), text.end(), group), end; it != end; ++it) {
        rows.push_back((*it)[1]);
    }
    return rows;
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
    {"cells of several units", 40000, true},
    {"the same without a cache that tells", 40000, false},
};

TEST(PictureSvg, EveryCellHasTheLookThatItsUnitsDemand) {
    for (const PictureRow& row : kRows) {
        const VolumeView view = RandomView(11, row.bytes, row.cacheTells);
        const Picture picture = MakePicture(view, 0, kSvgColumns, kSvgRows);
        const Grid& grid = picture.grid;
        const std::string text = DrawSvg(picture);
        const std::vector<std::string> rows = DrawnRows(text);
        ASSERT_EQ(rows.size(), grid.rows.size()) << row.what;
        for (size_t i = 0; i < rows.size(); ++i) {
            std::vector<Look> expected;
            for (uint64_t unit = grid.rows[i]; unit < grid.RowEnd(grid.rows[i]);
                 unit += grid.unitsPerCell) {
                expected.push_back(ExpectedLook(view, grid, unit));
            }
            ASSERT_EQ(DrawnLooks(rows[i]), expected) << row.what << ", row " << i;
        }
    }
}

TEST(PictureSvg, WhatItIsAPictureOfStandsInIt) {
    VolumeView view = RandomView(1, 10, true);
    const std::string text = DrawSvg(MakePicture(view, 86400, kSvgColumns, kSvgRows));
    EXPECT_NE(text.find(">/mnt/&lt;pool&gt;&amp;1, " + TimeText(86400) + "<"), std::string::npos)
        << text;
    EXPECT_NE(text.find(">5.0 MiB in 80 units of 64 KiB, a cache of 1.0 MiB<"), std::string::npos);
    EXPECT_NE(text.find(">a square is 1 unit = 64.0 KiB<"), std::string::npos);
    EXPECT_NE(text.find(">pinned, in the cache: "), std::string::npos);
    EXPECT_EQ(text.find("<pool>"), std::string::npos);
}

TEST(PictureSvg, WhatIsLeftOutIsSaid) {
    VolumeView view;
    view.bits = UnitSet(8 << 20);  // 4 TiB
    view.bits.Put(1 << 25);
    const std::string text = DrawSvg(MakePicture(view, 0, kSvgColumns, kSvgRows));
    EXPECT_EQ(DrawnRows(text).size(), 1U);
    const size_t before = text.find("⋮ 2.0 TiB with nothing");
    const size_t label = text.find(">2097152 MiB<");
    ASSERT_NE(before, std::string::npos) << text;
    EXPECT_LT(before, label);
    EXPECT_NE(text.find("⋮ 2.0 TiB with nothing", label), std::string::npos);
}

TEST(PictureSvg, AVolumeWithoutUnitsIsAPictureToo) {
    const std::string text = DrawSvg(MakePicture(VolumeView(), 0, kSvgColumns, kSvgRows));
    EXPECT_NE(text.find("</svg>"), std::string::npos);
    EXPECT_TRUE(DrawnRows(text).empty());
}

}  // namespace

}  // namespace client
