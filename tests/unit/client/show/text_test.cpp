// SPDX-License-Identifier: MIT
// UTF-8, against a decoder that is nothing but the standard's table; and small questions about
// texts.
#include "client/show/text.h"

#include <gtest/gtest.h>
#include <stdlib.h>
#include <time.h>

#include <random>

namespace client {

namespace {

// The UTF-8 of a character, with as many bytes as asked for.
std::string Encoded(uint32_t character, size_t length) {
    constexpr uint32_t kHeads[] = {0, 0, 0xc0, 0xe0, 0xf0};
    if (length == 1) {
        return std::string(1, static_cast<char>(character));
    }
    std::string text(length, '\0');
    for (size_t i = length - 1; i > 0; --i, character >>= 6) {
        text[i] = static_cast<char>(0x80 | (character & 0x3f));
    }
    text[0] = static_cast<char>(kHeads[length] | character);
    return text;
}

size_t LengthOf(uint32_t character) {
    return character < 0x80 ? 1 : character < 0x800 ? 2 : character < 0x10000 ? 3 : 4;
}

TEST(Text, EveryCharacterIsDecodedAndOnlyInItsShortestForm) {
    for (uint32_t character = 0; character < 0x110000; ++character) {
        const size_t length = LengthOf(character);
        const bool surrogate = character >= 0xd800 && character <= 0xdfff;
        uint32_t found = 0xffffffff;
        ASSERT_EQ(DecodeUtf8(Encoded(character, length), 0, found), surrogate ? 0 : length)
            << character;
        ASSERT_EQ(found, surrogate ? 0xffffffff : character);
        for (size_t more = length + 1; more <= 4; ++more) {
            ASSERT_EQ(DecodeUtf8(Encoded(character, more), 0, found), 0U) << character;
        }
    }
}

TEST(Text, WhatIsNoCharacterIsNone) {
    const std::pair<const char*, std::string> rows[] = {
        {"a lone continuation", "\x80"},
        {"two bytes, cut short", "\xc3"},
        {"three bytes, cut short", "\xe2\x82"},
        {"four bytes, cut short", "\xf0\x9f\x90"},
        {"no continuation", "\xc3("},
        {"a third byte that is none", "\xe2\x82("},
        {"beyond the last", Encoded(0x110000, 4)},
        {"never a first byte", "\xc0\x80"},
        {"never a first byte either", "\xf5\x80\x80\x80"},
        {"all ones", "\xff"},
    };
    for (const auto& [what, text] : rows) {
        uint32_t character = 0;
        EXPECT_EQ(DecodeUtf8(text, 0, character), 0U) << what;
        EXPECT_FALSE(IsUtf8("a" + text)) << what;
    }
}

TEST(Text, RandomBytesAreReadWithinTheText) {
    std::mt19937 random(3);
    for (int round = 0; round < 20000; ++round) {
        std::string text(1 + random() % 6, '\0');
        for (char& byte : text) {
            byte = static_cast<char>(random() % 4 == 0 ? random() : 0x80 | random());
        }
        uint32_t character = 0;
        for (size_t at = 0; at < text.size(); ++at) {
            const size_t length = DecodeUtf8(text, at, character);
            if (length > 0) {
                ASSERT_LE(at + length, text.size());
                ASSERT_EQ(text.substr(at, length), Encoded(character, length));
            }
        }
    }
}

TEST(Text, AWholeTextIsUtf8OrNot) {
    EXPECT_TRUE(IsUtf8(""));
    EXPECT_TRUE(IsUtf8(std::string("a\0b", 3)));
    EXPECT_TRUE(IsUtf8("b\xc3\xa4r \xe2\x82\xac \xf0\x9f\x90\xbb"));
    EXPECT_FALSE(IsUtf8("b\xe4r"));
}

TEST(Text, WhiteSpaceIsWhatEndsAScannedWord) {
    for (int byte = 0; byte < 256; ++byte) {
        const bool ends = byte == ' ' || (byte >= '\t' && byte <= '\r');
        EXPECT_EQ(HasWhiteSpace(std::string("a") + static_cast<char>(byte) + "b"), ends) << byte;
    }
    EXPECT_FALSE(HasWhiteSpace(""));
    EXPECT_FALSE(
        HasWhiteSpace("a\xc2\xa0"
                      "b"))
        << "a no-break space is scanned";
}

TEST(Text, ATextStartsWithItsBeginning) {
    EXPECT_TRUE(StartsWith("abc", "ab"));
    EXPECT_TRUE(StartsWith("abc", ""));
    EXPECT_TRUE(StartsWith("", ""));
    EXPECT_FALSE(StartsWith("ab", "abc"));
    EXPECT_FALSE(StartsWith("xab", "ab"));
}

TEST(Text, APathHasADirectoryAndAName) {
    const struct {
        const char* path;
        const char* directory;
        const char* name;
    } rows[] = {
        {"/a/b", "/a", "b"}, {"/a", "/", "a"}, {"//a", "/", "a"}, {"a", ".", "a"}, {"a/", "a", ""},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(DirectoryOf(row.path), row.directory) << row.path;
        EXPECT_EQ(NameOf(row.path), row.name) << row.path;
    }
}

TEST(Text, TheEndIsCompared) {
    EXPECT_TRUE(EndsWith("a.svg", ".svg"));
    EXPECT_TRUE(EndsWith(".svg", ".svg"));
    EXPECT_TRUE(EndsWith("a", ""));
    EXPECT_FALSE(EndsWith("svg", ".svg"));
    EXPECT_FALSE(EndsWith("a.svgz", ".svg"));
}

TEST(Text, WhatMarkupTakesForItsOwnIsEscaped) {
    EXPECT_EQ(EscapeMarkup("<a href=\"x\">R&D's</a>"),
              "&lt;a href=&quot;x&quot;&gt;R&amp;D's&lt;/a&gt;");
    EXPECT_EQ(EscapeMarkup("grün"), "grün");
    EXPECT_EQ(EscapeMarkup(""), "");
}

TEST(Text, ATimeIsTheLocalOne) {
    setenv("TZ", "UTC-2", 1);
    tzset();
    EXPECT_EQ(TimeText(0), "1970-01-01 02:00:00");
    unsetenv("TZ");
    tzset();
}

}  // namespace

}  // namespace client
