// SPDX-License-Identifier: MIT
// The map in the terminal: marks that count the bits, rows that fit.
#include <gtest/gtest.h>

#include <sstream>

#include "client/map/picture.h"

namespace client {

namespace {

struct MarkRow {
    const char* what;
    std::vector<uint8_t> bits;
    const char* firstLine;  // of the panel
};

TEST(PictureText, TheTerminalsMarksCountTheBits) {
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

TEST(PictureText, AMarkOfSeveralUnitsShowsHowMany) {
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
TEST(PictureText, RowsBeginAtWholeNumbers) {
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
TEST(PictureText, TheTerminalsWidthIsKept) {
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
