// SPDX-License-Identifier: MIT
// The form of a record for a page.
#include <gtest/gtest.h>

#include "client/show/report.h"

namespace client {

namespace {

TEST(ReportHtml, FactsLinesAndBlocks) {
    const Record block =
        Record().Headline("/m: \033[32mgood\033[0m").Add("n", 2048, "room", Unit::kBytes);
    EXPECT_EQ(Record()
                  .Add("pid", 7, "service")
                  .Add("hidden", 8)
                  .Add("unknown", Json::Value(), "unknown")
                  .Row("queue", "empty")
                  .Line("remedy: none")
                  .List("volumes", {block}, Layout::kBlocks)
                  .ToHtml(),
              "<dl>\n<dt>service</dt><dd>7</dd>\n<dt>queue</dt><dd>empty</dd>\n</dl>\n"
              "<p>remedy: none</p>\n"
              "<p><strong>/m: good</strong></p>\n"
              "<dl>\n<dt>room</dt><dd>2.0 KiB</dd>\n</dl>\n");
    EXPECT_EQ(Record().ToHtml(), "");
}

TEST(ReportHtml, RowsAreATable) {
    const Record one = Record().Add("path", "/m/a", "file").Add("units", 3, "units");
    const Record mute = Record().Add("path", "/m/b", "file").Add("units", Json::Value(), "units");
    EXPECT_EQ(Record().List("files", {one, mute}, Layout::kHeadedRows).ToHtml(),
              "<table><thead><tr><th scope=\"col\">file</th>"
              "<th scope=\"col\" class=\"number\">units</th></tr></thead>\n<tbody>\n"
              "<tr><th scope=\"row\">/m/a</th><td class=\"number\">3</td></tr>\n"
              "<tr><th scope=\"row\">/m/b</th><td class=\"number\">-</td></tr>\n"
              "</tbody></table>\n");
    const std::string plain =
        Record().List("files", {Record(one).Line("but")}, Layout::kRows).ToHtml();
    EXPECT_EQ(plain.find("thead"), std::string::npos);
    EXPECT_NE(plain.find("</tr>\n<tr><td class=\"remark\" colspan=\"2\">but</td></tr>"),
              std::string::npos)
        << plain;
    EXPECT_EQ(Record().List("files", {one}).ToHtml(), "") << "hidden, as in the text";
}

TEST(ReportHtml, NamesAreShownAsTheyAre) {
    const char* const name = "<script>alert(\"1\")</script>&amp;\033[2J";
    const char* const shown = "&lt;script&gt;alert(&quot;1&quot;)&lt;/script&gt;&amp;amp;\\x1b[2J";
    const Record row = Record().Add("path", name, "file");
    for (const Record& record : {row, Record().List("files", {row}, Layout::kHeadedRows)}) {
        const std::string html = record.ToHtml();
        EXPECT_NE(html.find(shown), std::string::npos) << html;
        EXPECT_EQ(html.find("<script"), std::string::npos) << html;
    }
}

}  // namespace

}  // namespace client
