// SPDX-License-Identifier: MIT
// The page of a volume says what list, disk, bitmap and cache say.
#include "client/verbs/volume_page.h"

#include <gtest/gtest.h>
#include <stdlib.h>

#include <filesystem>

#include "client/show/exit_status.h"
#include "tests/unit/client/verbs/verbs_test.h"

namespace client {

namespace {

class VolumePageTest : public VerbsTest {
  protected:
    std::string Page() {
        const std::string path = dir_ / "page.html";
        EXPECT_EQ(Run({"map", mount_, "-o", path, "--force"}).status, kExitDone);
        return ReadFile(path);
    }
};

bool Has(const std::string& text, const std::string& part) {
    return text.find(part) != std::string::npos;
}

// Of a table: cells of numbers behind the file's name.
std::string RowOf(const std::string& path, const std::vector<std::string>& cells) {
    std::string row = "<th scope=\"row\">" + path + "</th>";
    for (const std::string& cell : cells) {
        row += "<td class=\"number\">" + cell + "</td>";
    }
    return row + "</tr>";
}

TEST_F(VolumePageTest, FilesByWhatTheCacheHoldsOfThem) {
    MakeAt("db/whole", 0, 2);
    MakeAt("db/half", 4, 2);
    const std::string other = MakeAt("films/other", 8, 3);
    List({"db/whole", "db/half"});
    WriteBitmap({0, 1, 4, 5});
    // Units 0, 1, 4, 8, 9 and 15; the driver has what the file has.
    LetTheCacheTell("\x13\x83", "\x33");
    const std::string page = Page();
    const size_t first = page.find(RowOf("db/half", {"2", "1", "50.0 %"}));
    const size_t second = page.find(RowOf("db/whole", {"2", "2", "100.0 %"}));
    ASSERT_NE(first, std::string::npos) << page;
    ASSERT_NE(second, std::string::npos) << page;
    EXPECT_LT(first, second) << "what lacks most comes first";
    EXPECT_TRUE(Has(page, RowOf("films/other", {"1 byte", "2"}))) << page;
    EXPECT_TRUE(Has(page, "1 unit = 64.0 KiB of no file that was found")) << page;
    EXPECT_TRUE(Has(page, "! pinned, not in the cache yet</p>")) << page;
    EXPECT_TRUE(Has(page, "2 of them not in the cache. ") ||
                Has(page, "1 of them not in the cache. "));
    EXPECT_TRUE(Has(page, "in the cache. " + other + "</i>")) << page;
    EXPECT_TRUE(Has(page, "<p>The cache does not tell.</p>")) << "what it counts";
}

TEST_F(VolumePageTest, AHostileNameIsShownAsItIs) {
    MakeAt("<script>alert(1)<", 0, 2);
    MakeAt("<img src=x onerror=1>", 4, 1);
    List({"<script>alert(1)<"});
    WriteBitmap({0, 1});
    LetTheCacheTell("\x13", "\x03");
    const std::string page = Page();
    EXPECT_FALSE(Has(page, "<script")) << page;
    EXPECT_FALSE(Has(page, "<img")) << page;
    EXPECT_TRUE(Has(page, RowOf("&lt;script&gt;alert(1)&lt;", {"2", "2", "100.0 %"})));
    EXPECT_TRUE(Has(page, "in the cache. " + mount_ + "/&lt;img src=x onerror=1&gt;</i>")) << page;
}

TEST_F(VolumePageTest, WhatIsWrongIsSaid) {
    MakeAt("a", 0, 2);
    List({"a"});
    WriteBitmap({0});
    const std::string page = Page();
    EXPECT_TRUE(Has(page, "✗ ")) << page;
    EXPECT_TRUE(Has(page, "1 unit of 2 not set")) << page;
    EXPECT_TRUE(Has(page, "<p>the service ")) << "no service runs: " << page;
    std::filesystem::remove(mount_ + "/a");
    EXPECT_TRUE(Has(Page(), "gone: is nowhere on its volume"));
}

TEST_F(VolumePageTest, AVolumeWithNothingPinnedHasAPageToo) {
    WriteBitmap({});
    const std::string page = Page();
    EXPECT_TRUE(Has(page, "<p>None is on the list.</p>")) << page;
    EXPECT_TRUE(Has(page, "<p>Nothing.</p>")) << page;
}

}  // namespace

}  // namespace client
