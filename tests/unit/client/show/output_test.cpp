// SPDX-License-Identifier: MIT
// Texts on their way to the terminal, and what the service's store does to a name.
#include "client/show/output.h"

#include <gtest/gtest.h>
#include <stdlib.h>

#include "client/show/text.h"

namespace client {

namespace {

struct PrintableRow {
    const char* why;
    std::string text;
    std::string shown;
};

TEST(Output, AShareIsRoundedDownAndOfNothingThereIsNone) {
    EXPECT_EQ(Percent(2, 3), 66U);
    EXPECT_EQ(Percent(999, 1000), 99U) << "not all is not all";
    EXPECT_EQ(Percent(1ULL << 63, 1ULL << 63), 100U);
    EXPECT_EQ(Percent((1ULL << 63) - 1, 1ULL << 63), 99U);
    EXPECT_EQ(Percent(1ULL << 62, UINT64_MAX), 25U);
    EXPECT_FALSE(Percent(0, 0).has_value());
}

TEST(Output, NothingInANameReachesTheTerminalAsACommand) {
    const PrintableRow rows[] = {
        {"plain", "photos/a.jpg", "photos/a.jpg"},
        {"UTF-8", "b\xc3\xa4r \xe2\x82\xac \xf0\x9f\x90\xbb",
         "b\xc3\xa4r \xe2\x82\xac \xf0\x9f\x90\xbb"},
        {"escape", "a\033[2Jb", "a\\x1b[2Jb"},
        {"newline, tab, bell, delete", "a\n\t\a\x7f", "a\\x0a\\x09\\x07\\x7f"},
        {"a control of the upper half",
         "a\xc2\x9b"
         "b",
         "a\\xc2\\x9bb"},
        {"right-to-left override",
         "a\xe2\x80\xae"
         "b",
         "a\\xe2\\x80\\xaeb"},
        {"line separator", "a\xe2\x80\xa8", "a\\xe2\\x80\\xa8"},
        {"no UTF-8", "a\xff\xc3", "a\\xff\\xc3"},
        {"overlong", "\xc0\xaf", "\\xc0\\xaf"},
        {"surrogate", "\xed\xa0\x80", "\\xed\\xa0\\x80"},
        {"NUL", std::string("a\0b", 3), "a\\x00b"},
    };
    for (const PrintableRow& row : rows) {
        EXPECT_EQ(Printable(row.text), row.shown) << row.why;
    }
}

TEST(Output, BytesAreShownInTheUnitThatFits) {
    const std::pair<uint64_t, const char*> rows[] = {
        {0, "0 bytes"},          {1, "1 byte"},           {1023, "1023 bytes"},
        {1024, "1.0 KiB"},       {65536, "64.0 KiB"},     {(1ULL << 20) - 1, "1.0 MiB"},
        {3ULL << 29, "1.5 GiB"}, {1ULL << 40, "1.0 TiB"}, {UINT64_MAX, "16.0 EiB"},
    };
    for (const auto& [bytes, text] : rows) {
        EXPECT_EQ(HumanBytes(bytes), text);
    }
}

TEST(Output, NoColourWithoutATerminal) {
    EXPECT_EQ(Toned(Tone::kBad, "text"), "text");
    EXPECT_EQ(TonedError(Tone::kGood, "text"), "text");
}

TEST(Output, ColumnsCountWhatIsSeen) {
    EXPECT_EQ(Columns("abc"), 3U);
    EXPECT_EQ(Columns("\033[31mabc\033[0m"), 3U);
    EXPECT_EQ(Columns("b\xc3\xa4r"), 3U);
    EXPECT_EQ(Columns(""), 0U);
}

TEST(Output, CountsAgreeWithTheirWords) {
    EXPECT_EQ(Counted(0, "file"), "0 files");
    EXPECT_EQ(Counted(1, "file"), "1 file");
    EXPECT_EQ(Counted(2, "entry", "entries"), "2 entries");
}

TEST(Output, WhatWasSaidLastIsKeptOnce) {
    testing::internal::CaptureStderr();
    Say("nobody is there");
    Say("start the service");
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "quorcachepinctl: nobody is there\nquorcachepinctl: start the service\n");
    EXPECT_EQ(TakeLastSaid(), "start the service");
    EXPECT_EQ(TakeLastSaid(), "");
}

}  // namespace

}  // namespace client
