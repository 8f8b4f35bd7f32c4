// SPDX-License-Identifier: MIT
// The pictures' bytes against the bitmap that they were made of.
#include "client/map/picture.h"

#include <gtest/gtest.h>
#include <png.h>
#include <stdio.h>

#include <random>
#include <regex>
#include <sstream>

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

struct Image {
    uint32_t width = 0;
    uint32_t height = 0;
    std::vector<uint8_t> rgb;
    uint32_t At(uint32_t x, uint32_t y) const {
        const uint8_t* const pixel = &rgb[(static_cast<size_t>(y) * width + x) * 3];
        return static_cast<uint32_t>(pixel[0] << 16 | pixel[1] << 8 | pixel[2]);
    }
};

Image ReadPng(const std::string& path) {
    Image image;
    png_image reader = {};
    reader.version = PNG_IMAGE_VERSION;
    if (png_image_begin_read_from_file(&reader, path.c_str()) == 0) {
        ADD_FAILURE() << reader.message;
        return image;
    }
    reader.format = PNG_FORMAT_RGB;
    image.width = reader.width;
    image.height = reader.height;
    image.rgb.resize(PNG_IMAGE_SIZE(reader));
    EXPECT_NE(png_image_finish_read(&reader, nullptr, image.rgb.data(), 0, nullptr), 0);
    return image;
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

TEST(Picture, EveryUnitOfThePngHasTheColourThatTheBitmapSays) {
    const TempDir dir;
    for (const PictureRow& row : kRows) {
        const VolumeView view = RandomView(7, row.bytes, row.cacheTells);
        const Picture picture = MakePicture(view);
        const PictureFrame frame = FrameOf(picture);
        std::string why;
        ASSERT_TRUE(WritePng(picture, dir / "map.png", why)) << why;
        const Image image = ReadPng(dir / "map.png");
        ASSERT_EQ(image.width, frame.width);
        ASSERT_EQ(image.height, frame.height);
        ASSERT_EQ(picture.unitsPerCell, 1U) << row.what;
        uint64_t wrong = 0;
        for (uint64_t unit = 0; unit < row.bytes * 8; ++unit) {
            const auto x = static_cast<uint32_t>(unit % picture.columns) * frame.side + frame.left;
            const auto y = static_cast<uint32_t>(unit / picture.columns) * frame.side + frame.top;
            wrong += image.At(x, y) != ExpectedColour(view, unit) ? 1U : 0U;
            wrong += image.At(x + frame.side - 1, y + frame.side - 1) != ExpectedColour(view, unit)
                         ? 1U
                         : 0U;
        }
        EXPECT_EQ(wrong, 0U) << row.what;
    }
}

TEST(Picture, TheSvgHoldsTheSameUnits) {
    const TempDir dir;
    const std::regex rectangle(
        "<rect x=\"(\\d+)\" y=\"(\\d+)\" width=\"(\\d+)\" height=\"(\\d+)\" fill=\"#(\\w{6})\"/>");
    for (const PictureRow& row : kRows) {
        const VolumeView view = RandomView(11, row.bytes, row.cacheTells);
        const Picture picture = MakePicture(view);
        const PictureFrame frame = FrameOf(picture);
        std::string why;
        ASSERT_TRUE(WriteSvg(picture, dir / "map.svg", why)) << why;
        const std::string text = ReadFile(dir / "map.svg");
        std::vector<uint32_t> seen(row.bytes * 8, 1);
        for (std::sregex_iterator it(text.begin(), text.end(), rectangle), end; it != end; ++it) {
            const auto x = static_cast<uint32_t>(std::stoul((*it)[1]));
            const auto y = static_cast<uint32_t>(std::stoul((*it)[2]));
            const auto width = static_cast<uint32_t>(std::stoul((*it)[3]));
            if (y < frame.top || y >= frame.top + picture.rows * frame.side) {
                continue;  // of the legend
            }
            for (uint32_t at = x; at < x + width; at += frame.side) {
                const uint64_t unit =
                    static_cast<uint64_t>((y - frame.top) / frame.side) * picture.columns +
                    (at - frame.left) / frame.side;
                ASSERT_LT(unit, seen.size()) << row.what;
                EXPECT_EQ(seen[unit], 1U) << "drawn twice";
                seen[unit] = static_cast<uint32_t>(std::stoul((*it)[5], nullptr, 16));
            }
        }
        uint64_t wrong = 0;
        for (uint64_t unit = 0; unit < seen.size(); ++unit) {
            wrong += seen[unit] != ExpectedColour(view, unit) ? 1U : 0U;
        }
        EXPECT_EQ(wrong, 0U) << row.what;
        EXPECT_NE(text.find("/mnt/&lt;pool&gt;&amp;1"), std::string::npos);
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

TEST(Picture, AVolumeWithoutUnitsIsAPictureToo) {
    const TempDir dir;
    const Picture picture = MakePicture(VolumeView());
    std::string why;
    EXPECT_TRUE(WritePng(picture, dir / "map.png", why)) << why;
    EXPECT_TRUE(WriteSvg(picture, dir / "map.svg", why)) << why;
}

TEST(Picture, WhatCannotBeWrittenIsSaid) {
    const TempDir dir;
    const Picture picture = MakePicture(RandomView(1, 10, false));
    for (const std::string& path : {dir / "nothing/map.png", std::string("/dev/full")}) {
        std::string why;
        EXPECT_FALSE(WritePng(picture, path, why)) << path;
        EXPECT_NE(why.find(path), std::string::npos);
        EXPECT_FALSE(WriteSvg(picture, path, why)) << path;
    }
}

struct MarkRow {
    const char* what;
    std::vector<uint8_t> bits;
    const char* firstLine;  // of the panel
};

TEST(Picture, TheTerminalsMarksCountTheBits) {
    const MarkRow rows[] = {
        {"one unit a mark", {0x05, 0x80, 0xff, 0xff}, "      0 MiB #.#............#"},
        {"nothing", {0, 0}, "      0 MiB ................"},
    };
    for (const MarkRow& row : rows) {
        VolumeView view;
        view.mountPath = "/m";
        view.bits = UnitSet(row.bits);
        testing::internal::CaptureStdout();
        PrintMap(view, 40);
        const std::string text = testing::internal::GetCapturedStdout();
        EXPECT_NE(text.find(std::string(row.firstLine) + "\n"), std::string::npos)
            << row.what << "\n"
            << text;
    }
}

TEST(Picture, AMarkOfSeveralUnitsShowsHowMany) {
    VolumeView view;
    view.mountPath = "/m";
    std::vector<uint8_t> bits(16 * 16 * 4 / 8);  // 1024 units, 4 a mark at 16 marks a row
    bits[0] = 0xf1;                              // one of four, then all four
    bits[1] = 0x03;                              // two of four
    view.bits = UnitSet(bits);
    testing::internal::CaptureStdout();
    PrintMap(view, 30);
    const std::string text = testing::internal::GetCapturedStdout();
    EXPECT_NE(text.find("      0 MiB -#+.............\n"), std::string::npos) << text;
    EXPECT_NE(text.find("a mark is 4 units"), std::string::npos) << text;
}

// Where the last row begins: a whole number of the unit, never 3.8 GiB for 3840 MiB.
TEST(Picture, RowsBeginAtWholeNumbers) {
    const std::pair<size_t, const char*> rows[] = {
        {4096 / 8, "    240 MiB "},
        {65536 / 8, "   3840 MiB "},
        {(1 << 20) / 8, "     60 GiB "},
        {(1 << 24) / 8, "    960 GiB "},
    };
    for (const auto& [bytes, label] : rows) {
        VolumeView view;
        view.mountPath = "/m";
        view.bits = UnitSet(bytes);
        testing::internal::CaptureStdout();
        PrintMap(view, 80);
        const std::string text = testing::internal::GetCapturedStdout();
        const size_t at = text.rfind(label);
        ASSERT_NE(at, std::string::npos) << text;
        EXPECT_EQ(text.compare(at + 12, 3, "..."), 0) << text;
    }
}

// Down to a column; labels go first.
TEST(Picture, TheTerminalsWidthIsKept) {
    for (const size_t columns : {1U, 5U, 20U, 27U, 28U, 79U}) {
        VolumeView view;
        view.mountPath = "/m";
        view.bits = UnitSet(512);
        testing::internal::CaptureStdout();
        PrintMap(view, columns);
        std::istringstream text(testing::internal::GetCapturedStdout());
        int rows = 0;
        for (std::string line; std::getline(text, line);) {
            if (line.find("..") != std::string::npos || line == ".") {
                EXPECT_LE(line.size(), columns) << line;
                ++rows;
            }
        }
        EXPECT_GT(rows, 3) << columns;
    }
}

}  // namespace

}  // namespace client
