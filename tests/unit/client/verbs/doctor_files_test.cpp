// SPDX-License-Identifier: MIT
// What the doctor finds in the debug settings and in the copies of the list.
#include <gtest/gtest.h>

#include "client/verbs/doctor.h"
#include "tests/unit/client/client_test.h"

namespace client {

namespace {

class DoctorFilesTest : public ClientTest {
  protected:
    void SetUp() override {
        ClientTest::SetUp();
        settings_ = dir_ / "debug";
    }

    // What the doctor says of settings with this content; empty when nothing.
    std::string Said(const std::string& content) {
        std::vector<Finding> findings;
        WriteFile(settings_, content);
        ExamineDebugSettings(settings_, findings);
        return findings.empty() ? "" : findings[0].text;
    }

    // What it says of the copies beside a list; empty when nothing.
    std::string SaidOfCopies(const ConfigState& now) {
        std::vector<Finding> findings;
        ExamineCopies(dir_ / "conf", now, findings);
        return findings.empty() ? "" : findings[0].text + "; " + findings[0].remedy;
    }

    std::string settings_;
};

TEST_F(DoctorFilesTest, SettingsThatMakeAMappingFailAreNamed) {
    std::vector<Finding> findings;
    ExamineDebugSettings(settings_, findings);
    EXPECT_TRUE(findings.empty()) << "it is not there";
    EXPECT_EQ(Said(""), "");
    EXPECT_EQ(Said("print_level=debug\n"), "");
    EXPECT_EQ(Said(std::string("/") + std::string(5000, 'x')), "") << "too long for a path";
    EXPECT_NE(Said("/mnt/a/x").find(" names /mnt/a/x: "), std::string::npos);
    EXPECT_NE(Said("/mnt/a/x\n").find(" names /mnt/a/x: "), std::string::npos);
    ExamineDebugSettings(settings_, findings);
    ASSERT_EQ(findings.size(), 1U);
    EXPECT_EQ(findings[0].health, Health::kBad);
}

TEST_F(DoctorFilesTest, ACopyThatHasMoreThanTheListIsNamed) {
    ConfigState now;
    EXPECT_EQ(SaidOfCopies(now), "") << "there are no copies";
    WriteFile(dir_ / "conf.copy-1",
              R"({"volumes":{"/mnt/a":{"files":{"5":"x","6":"y"}},"/mnt/b":{"files":{"7":"z"}}}})");
    WriteFile(dir_ / "conf.copy-2", R"({"volumes":{"/mnt/b":{"files":{"7":"z"}}}})");
    WriteFile(dir_ / "conf.copy-3", "damaged");
    const std::string all = SaidOfCopies(now);
    EXPECT_EQ(all.find("copy 1 of "), 0U) << all;
    EXPECT_NE(all.find(" lists 3 files that the list has not: 2 on /mnt/a, 1 on /mnt/b; "),
              std::string::npos)
        << all;
    EXPECT_NE(all.find("quorcachepinctl restore 1"), std::string::npos) << all;
    // One follows to another inode, the other to another path.
    now.pinned["/mnt/a"] = {{"x", 50}, {"new", 6}};
    const std::string one = SaidOfCopies(now);
    EXPECT_EQ(one.find("copy 2 of "), 0U) << one;
    EXPECT_NE(one.find(" lists 1 file that the list has not: 1 on /mnt/b; "), std::string::npos);
    now.pinned["/mnt/b"] = {{"z", 7}};
    EXPECT_EQ(SaidOfCopies(now), "");
}

}  // namespace

}  // namespace client
