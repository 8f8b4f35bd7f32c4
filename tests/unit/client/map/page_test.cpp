// SPDX-License-Identifier: MIT
// The page: what stands in it, and that nothing comes from outside.
#include "client/map/page.h"

#include <gtest/gtest.h>

#include <regex>

#include "client/show/text.h"

namespace client {

namespace {

Page MakePage() {
    VolumeView view;
    view.mountPath = "/mnt/pool";
    view.bits = UnitSet({0x0f, 0});
    view.residency.known = true;
    view.residency.resident = UnitSet({0x07, 0x80});
    view.residency.cacheSize = 1 << 20;
    Page page;
    page.host = "attic";
    page.state = "pinned, not in the cache yet";
    page.tone = Tone::kWarn;
    page.picture = MakePicture(view, 86400, kPageColumns, kPageRows);
    page.files = FilePlaces({{"/mnt/pool/a", {{0, 2}}}, {"/mnt/pool/b", {{3, 3}}}});
    page.before = {{"Health", Record().Line("remedy: reload")}};
    page.after = {{"Pinned files", Record().Add("n", 4, "units")}};
    return page;
}

TEST(Page, EachPlaceTellsItsUnitsAndFiles) {
    const std::string text = PageText(MakePage());
    EXPECT_NE(
        text.find(
            "<b style=\"flex:3\" class=\"p4 r0\" tabindex=\"-1\"><i>192.0 KiB at 0 bytes: 3 units "
            "pinned. /mnt/pool/a</i></b>"
            "<b style=\"flex:1\" class=\"p4 r0 x\" tabindex=\"-1\"><i>64.0 KiB at 192.0 KiB: 1 "
            "unit pinned, 1 of them not in the cache. /mnt/pool/b</i></b>"
            "<b style=\"flex:11\"></b>"
            "<b style=\"flex:1\" class=\"p0 r4\" tabindex=\"-1\"><i>64.0 KiB at 960.0 KiB: 1 unit "
            "in the cache</i></b>"
            "<span style=\"flex:48\"></span></div>"),
        std::string::npos)
        << text;
}

TEST(Page, WhatItIsAndHowItIsStandsAboveEverything) {
    const std::string text = PageText(MakePage());
    const char* const order[] = {
        "<!DOCTYPE html>",
        "<html lang=\"en\">",
        "<title>/mnt/pool on attic</title>",
        "<h1>/mnt/pool</h1>",
        "1.0 MiB in 16 units of 64 KiB, a cache of 1.0 MiB",
        "<p class=\"state warn\">! pinned, not in the cache yet</p>",
        "<h2>Health</h2>\n<p>remedy: reload</p>",
        "<h2 id=\"map\">Map</h2>",
        "pinned, in the cache: 3 units = 192.0 KiB</li>",
        "role=\"img\" aria-label=\"Map of the device. pinned, in the cache: 3",
        "<h2>Pinned files</h2>\n<dl>",
        "</html>"};
    size_t at = 0;
    for (const char* const part : order) {
        const size_t next = text.find(part, at);
        ASSERT_NE(next, std::string::npos) << part << "\n" << text;
        at = next;
    }
    EXPECT_NE(text.find("attic, " + TimeText(86400)), std::string::npos);
}

TEST(Page, NothingComesFromOutside) {
    const std::string text = PageText(MakePage());
    EXPECT_NE(text.find("content=\"default-src 'none'; style-src 'unsafe-inline'\""),
              std::string::npos);
    const std::regex outside(
        "<(script|link|img|iframe|object|a|form)\\b|https?:|url\\(|@import|\\bon\\w+=");
    EXPECT_FALSE(std::regex_search(text, outside));
}

TEST(Page, EveryNameIsShownAsItIs) {
    const std::string name = "/mnt/<script>\"&'\n</script>";
    const std::string shown = "/mnt/&lt;script&gt;&quot;&amp;'\\x0a&lt;/script&gt;";
    Page page = MakePage();
    page.host = name;
    page.picture.mountPath = name;
    page.state = name;
    page.files = FilePlaces({{name, {{0, 3}}}});
    page.before = {{name, Record()}};
    page.after = {{"Files", Record().Add("path", name, "file")}};
    const std::string text = PageText(page);
    EXPECT_EQ(text.find("<script"), std::string::npos) << text;
    for (const std::string& place :
         {"<title>" + shown + " on " + shown + "</title>", "<h1>" + shown + "</h1>",
          "pinned. " + shown + "</i>", "<dd>" + shown + "</dd>"}) {
        EXPECT_NE(text.find(place), std::string::npos) << place << "\n" << text;
    }
}

TEST(Page, ManyFilesInOnePlaceAreCounted) {
    Page page = MakePage();
    std::vector<FilePlace> files;
    for (char c = 'a'; c < 'i'; ++c) {
        files.push_back({std::string("/") + c, {{1, 1}}});
    }
    page.files = FilePlaces(files);
    EXPECT_NE(PageText(page).find("3 units pinned. /a, /b, /c, /d, /e and 3 more files</i>"),
              std::string::npos);
}

TEST(Page, WhatIsLeftOutIsSaid) {
    VolumeView view;
    view.bits = UnitSet(8 << 20);  // 4 TiB
    view.bits.Put(1 << 25);
    Page page = MakePage();
    page.picture = MakePicture(view, 0, kPageColumns, kPageRows);
    const std::string text = PageText(page);
    EXPECT_NE(text.find("<p class=\"gap\">⋮ 2.0 TiB with nothing</p>\n<div class=\"row\"><span "
                        "class=\"at\">"),
              std::string::npos)
        << text;
}

}  // namespace

}  // namespace client
