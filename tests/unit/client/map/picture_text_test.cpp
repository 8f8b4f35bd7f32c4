// SPDX-License-Identifier: MIT
// The map in the terminal: marks that count the bits, rows that fit.
#include <gtest/gtest.h>

#include <sstream>

#include "client/map/picture.h"
#include "client/show/text.h"

namespace client {

namespace {

std::string Printed(const VolumeView& view, size_t columns) {
    testing::internal::CaptureStdout();
    PrintMap(view, 86400, columns);
    return testing::internal::GetCapturedStdout();
}

VolumeView View(const std::vector<uint8_t>& bits) {
    VolumeView view;
    view.mountPath = "/m";
    view.bits = UnitSet(bits);
    return view;
}

TEST(PictureText, AVolumeOfFewUnits) {
    EXPECT_EQ(Printed(View({0x05, 0x80, 0xff, 0xff}), 40),
              "/m, " + TimeText(86400) +
                  ": 2.0 MiB in 32 units of 64 KiB\n"
                  "pinned: 19 units = 1.2 MiB\n"
                  "  a mark is 1 unit = 64.0 KiB: . none  # all\n"
                  "      0 MiB #.#............#\n"
                  "      1 MiB ################\n");
}

TEST(PictureText, ACacheThatTellsHasPanelsOfItsOwn) {
    VolumeView view = View({0x05, 0});
    view.residency.known = true;
    view.residency.resident = UnitSet({0xc1, 0});
    const std::string text = Printed(view, 40);
    EXPECT_NE(text.find("pinned: 2 units"), std::string::npos) << text;
    EXPECT_NE(text.find("pinned and not in the cache: 1 unit = 64.0 KiB\n"
                        "  a mark is 1 unit = 64.0 KiB: . none  # all\n"
                        "      0 MiB ..#.............\n"
                        "in the cache: 3 units = 192.0 KiB\n"
                        "  a mark is 1 unit = 64.0 KiB: . none  # all\n"
                        "      0 MiB #.....##........\n"),
              std::string::npos)
        << text;
    view.residency.resident = UnitSet({0xff, 0});
    EXPECT_EQ(Printed(view, 40).find("not in the cache"), std::string::npos);
}

TEST(PictureText, AMarkOfSeveralUnitsShowsHowMany) {
    std::vector<uint8_t> bits(16 * 16 * 8 / 8, 0x01);  // 2048 units, 8 a mark at 16 marks a row
    const uint8_t marks[] = {0x01, 0x03, 0x07, 0x0f, 0x7f, 0xff, 0x00};
    std::copy(std::begin(marks), std::end(marks), bits.begin());
    const std::string text = Printed(View(bits), 30);
    EXPECT_NE(text.find("      0 MiB -==++#.---------\n"), std::string::npos) << text;
    EXPECT_NE(text.find("  a mark is 8 units = 512.0 KiB: . none  - some  = 128.0 KiB and more  + "
                        "256.0 KiB and more  # all\n"),
              std::string::npos)
        << text;
}

// 0.01 % of 4 TiB: each of two files is seen by itself.
TEST(PictureText, OnALargeDeviceTheRestGivesWay) {
    VolumeView view = View({});
    view.bits = UnitSet(8 << 20);
    view.bits.Put({{1 << 20, (1 << 20) + 299}, {1 << 25, (1 << 25) + 6400}});
    const std::string text = Printed(view, 80);
    EXPECT_NE(text.find("  a mark is 8 units = 512.0 KiB: "), std::string::npos) << text;
    EXPECT_NE(text.find("          : 64.0 GiB with nothing\n"
                        "  65536 MiB #####################################+"),
              std::string::npos)
        << text;
    EXPECT_NE(text.find("          : 1.9 TiB with nothing\n2097152 MiB ####"), std::string::npos);
    EXPECT_NE(text.find("          : 2.0 TiB with nothing\n", text.find("2097152 MiB")),
              std::string::npos);
}

TEST(PictureText, NothingAtAllIsSaid) {
    VolumeView view = View({});
    view.bits = UnitSet(8 << 20);
    EXPECT_NE(Printed(view, 80).find("          : 4.0 TiB with nothing\n"), std::string::npos);
}

// Down to a column; labels go first.
TEST(PictureText, TheTerminalsWidthIsKept) {
    for (const size_t columns : {1U, 5U, 20U, 27U, 28U, 79U}) {
        std::istringstream text(Printed(View(std::vector<uint8_t>(512, 0xff)), columns));
        int rows = 0;
        for (std::string line; std::getline(text, line);) {
            if (line.find("##") != std::string::npos || line == "#") {
                EXPECT_LE(line.size(), columns) << line;
                ++rows;
            }
        }
        EXPECT_GT(rows, 3) << columns;
    }
}

}  // namespace

}  // namespace client
