// SPDX-License-Identifier: MIT
// What a repair says it has done.
#include "client/verbs/repair_report.h"

#include <gtest/gtest.h>

namespace client {

namespace {

std::string TextOf(const RepairReport& repair, bool done) {
    testing::internal::CaptureStdout();
    DescribeRepair(repair, done).Print();
    return testing::internal::GetCapturedStdout();
}

TEST(RepairReportTest, BothFormsSayWhatWasDoneAndWhatWasNot) {
    const RepairReport repair = {1, 2, 3, {"a: pinned again"}, {"b: gone"}};
    const Json::Value item = DescribeRepair(repair, true).ToJson();
    EXPECT_EQ(item["requests"], 1U);
    EXPECT_EQ(item["unitsCleared"], 2U);
    EXPECT_EQ(item["unitsSet"], 3U);
    EXPECT_EQ(item["actions"][0], "a: pinned again");
    EXPECT_EQ(item["left"][0], "b: gone");
    EXPECT_EQ(TextOf(repair, true),
              "  repair: a: pinned again\n  not repaired: b: gone\n  1 request sent and done\n"
              "checked again:\n");
    EXPECT_EQ(TextOf(repair, false),
              "  repair: a: pinned again\n  not repaired: b: gone\n"
              "  1 request sent, not waited for to the end\n");
}

TEST(RepairReportTest, NoRequestIsNotMentioned) {
    EXPECT_EQ(TextOf(RepairReport(), true), "checked again:\n");
    EXPECT_TRUE(DescribeRepair(RepairReport(), true).ToJson()["left"].isArray());
}

}  // namespace

}  // namespace client
