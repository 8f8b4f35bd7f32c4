// SPDX-License-Identifier: MIT
#include "client/help_format.h"

#include <gtest/gtest.h>

#include <CLI/App.hpp>
#include <CLI/Config.hpp>
#include <CLI/Formatter.hpp>

namespace client {

namespace {

struct Row {
    const char* text;
    const char* filled;
    const char* why;
};

TEST(HelpFormatTest, ParagraphsAreFilledAndIndentedLinesStay) {
    const Row rows[] = {
        {"", "", "nothing"},
        {"one", "one", "a word"},
        {"one two three", "one two\nthree", "a line too long by one"},
        {"one two  six", "one two\nsix", "blanks between words are one"},
        {"one tw six", "one tw six", "a line that just fits"},
        {"one\ntwo\nsix", "one two\nsix", "lines of a paragraph are one text"},
        {"one\n\ntwo", "one\n\ntwo", "two paragraphs"},
        {"Example:\n  a line that is as it is", "Example:\n  a line that is as it is", "indented"},
        {"  first\nthen", "  first\nthen", "a paragraph behind an indented line"},
        {"areallylongword b", "areallylongword\nb", "a word that fits nowhere"},
    };
    for (const Row& row : rows) {
        EXPECT_EQ(Filled(row.text, 10), row.filled) << row.why;
    }
}

TEST(HelpFormatTest, AnApplicationsHelpHasTheForm) {
    CLI::App app(
        "Does what an application does that is there for the sake of its help, and nothing.",
        "app");
    app.formatter(HelpFormat());
    app.set_help_flag();
    app.add_flag("--flag", "What this is for takes more words than there is room for in one line");
    app.add_subcommand("verb", "What it does takes more words than there is room for in one line")
        ->group("Verbs");
    app.footer("More of it.\nExample:\n  app verb");
    EXPECT_EQ(app.help(),
              "Does what an application does that is there for the sake of its help, and\n"
              "nothing.\n"
              "Usage: app [OPTION...] [VERB]\n"
              "\n"
              "Options:\n"
              "  --flag                  What this is for takes more words than there is room\n"
              "                          for in one line\n"
              "\n"
              "Verbs:\n"
              "  verb                    What it does takes more words than there is room for\n"
              "                          in one line\n"
              "\n"
              "More of it. Example:\n"
              "  app verb\n");
}

}  // namespace

}  // namespace client
