// SPDX-License-Identifier: MIT
// How records stand among others in the text form.
#include <gtest/gtest.h>

#include "client/show/report.h"
#include "tests/unit/client/show/printed.h"

namespace client {

namespace {

TEST(ReportText, BlocksWithoutAHeadlineStandInLineWithTheRowsAround) {
    const Record plain = Record().Add("pid", 7, "service");
    const Record headed = Record().Headline("/m:").Add("n", 1, "units set");
    EXPECT_EQ(TextOf(Record()
                         .List("services", {plain, plain}, Layout::kBlocks)
                         .Add("configPath", "/c", "configuration")
                         .List("volumes", {headed}, Layout::kBlocks)),
              "service        7\nservice        7\nconfiguration  /c\n/m:\n  units set  1\n");
}

TEST(ReportText, AMemberStandsInLineToo) {
    const Record file = Record().Add("inode", 7, "inode");
    const Record report = Record().Add("volume", "/m", "volume").Member("file", file);
    EXPECT_EQ(report.ToJson()["file"]["inode"].asInt(), 7);
    EXPECT_EQ(TextOf(report), "volume  /m\ninode   7\n");
}

TEST(ReportText, ALineInAListOfRowsStandsInTheLastColumn) {
    const Record finding = Record().Add("health", "bad", "").Add("text", "no queue", "");
    EXPECT_EQ(TextOf(Record().List("findings", {Record(finding).Line("remedy: start it"), finding},
                                   Layout::kRows)),
              "bad  no queue\n     remedy: start it\nbad  no queue\n");
}

TEST(ReportText, WhatWasPrintedIsNotPrintedAgain) {
    Record report;
    EXPECT_EQ(TextOf(report.Line("before")), "before\n");
    testing::internal::CaptureStdout();
    report.Print();
    report.Line("after").Print();
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "before\nafter\n");
}

}  // namespace

}  // namespace client
