// SPDX-License-Identifier: MIT
#include "client/suggestion.h"

#include <gtest/gtest.h>

namespace client {

namespace {

struct Row {
    const char* given;
    std::string meant;
    const char* why;
};

TEST(SuggestionTest, TheNearestNamesAreNamedAndNoFarOnes) {
    const std::vector<std::string> verbs = {"pin",     "unpin",   "reload", "pend",
                                            "release", "restore", "list",   "status"};
    const Row rows[] = {
        {"pni", "; did you mean pin?", "neighbours exchanged"},
        {"pinn", "; did you mean pin?", "one too many"},
        {"lst", "; did you mean list?", "one too few"},
        {"lost", "; did you mean list?", "one changed"},
        {"stat", "; did you mean status?", "only begun"},
        {"re", "; did you mean reload, release or restore?", "all that are as near"},
        {"relaese", "; did you mean release?", "the nearest alone, reload is nearly as near"},
        {"statsu", "; did you mean status?", "neighbours exchanged at the end"},
        {"ps", "", "two letters that neither begin a name nor are nearly one"},
        {"p", "", "every letter is near to every other"},
        {"", "", "nothing"},
        {"frobnicate", "", "nothing like it"},
        {"unpinned", "", "three letters away"},
    };
    for (const Row& row : rows) {
        EXPECT_EQ(DidYouMean(row.given, verbs), row.meant) << row.why;
    }
    EXPECT_EQ(DidYouMean(std::string(1000000, 'p'), verbs), "") << "and soon";
}

TEST(SuggestionTest, DashesCountAsLetters) {
    const std::vector<std::string> options = {"-w", "--wait", "-r", "--recursive"};
    EXPECT_EQ(DidYouMean("--wiat", options), "; did you mean --wait?");
    EXPECT_EQ(DidYouMean("-wait", options), "; did you mean --wait?");
    EXPECT_EQ(DidYouMean("--recurse", options), "; did you mean --recursive?");
    EXPECT_EQ(DidYouMean("-x", options), "") << "every short option is one letter away";
    EXPECT_EQ(DidYouMean("--", options), "");
}

}  // namespace

}  // namespace client
