// SPDX-License-Identifier: MIT
#include "client/request/refusals.h"

#include <gtest/gtest.h>

namespace client {

namespace {

std::string Said(const std::vector<Refusal>& refusals) {
    testing::internal::CaptureStderr();
    SayRefused("refused", refusals);
    return testing::internal::GetCapturedStderr();
}

TEST(RefusalsTest, UpToThreeWithOneReasonHaveALineEach) {
    EXPECT_EQ(Said({}), "");
    EXPECT_EQ(Said({{"/a", "is a pipe"}, {"/b\033", "is a pipe"}, {"/c", "is a pipe"}}),
              "quorcachepinctl: refused /a: is a pipe\n"
              "quorcachepinctl: refused /b\\x1b: is a pipe\n"
              "quorcachepinctl: refused /c: is a pipe\n");
}

TEST(RefusalsTest, MoreWithOneReasonAreOneLineWithTheirNumber) {
    std::vector<Refusal> refusals;
    for (int i = 0; i < 20; ++i) {
        refusals.push_back({"/a" + std::to_string(i), "is a pipe"});
        if (i < 2) {
            refusals.push_back({"/b" + std::to_string(i), "is empty"});
        }
    }
    EXPECT_EQ(Said(refusals),
              "quorcachepinctl: refused /a0 and 19 more: is a pipe\n"
              "quorcachepinctl: refused /b0: is empty\n"
              "quorcachepinctl: refused /b1: is empty\n");
}

}  // namespace

}  // namespace client
