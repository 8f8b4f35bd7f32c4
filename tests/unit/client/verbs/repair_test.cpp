// SPDX-License-Identifier: MIT
// Which way a repair goes.
#include "client/verbs/repair.h"

#include <gtest/gtest.h>
#include <stdlib.h>
#include <sys/stat.h>

#include <filesystem>

#include "client/show/exit_status.h"
#include "tests/unit/client/client_test.h"
#include "tests/unit/client/service/impostor.h"

namespace client {

namespace {

class RepairTest : public QueueClientTest {
  protected:
    void SetUp() override {
        QueueClientTest::SetUp();
        std::filesystem::create_symlink("/bin/sh", dir_ / "quorcachepinfiled");
        WriteFile(conf_, before_);
    }
    int RepairAll(bool restart) {
        CheckOptions options;
        RepairReport report;
        options.restart = restart;
        testing::internal::CaptureStderr();
        const int status = Repair(options, conf_, "", report);
        talk_ = testing::internal::GetCapturedStderr();
        return status;
    }

    const std::string conf_ = dir_ / "conf";
    const std::string before_ =
        R"({"volumes":{")" + dir_.path() + R"(/vol":{"files":{"4000000000":"gone"}}}})";
    std::string talk_;
};

TEST_F(RepairTest, WithoutAServiceItIsMadeAtRest) {
    EXPECT_EQ(RepairAll(false), kExitDone) << talk_;
    EXPECT_EQ(ReadFile(conf_).find("gone"), std::string::npos);
}

TEST_F(RepairTest, AnotherServicesFileIsLeftAlone) {
    const Impostor service(dir_ / "quorcachepinfiled", {"-f", dir_ / "other"});
    EXPECT_EQ(RepairAll(false), kExitNoService);
    EXPECT_NE(talk_.find("is not the configuration file of the service that runs"),
              std::string::npos)
        << talk_;
    EXPECT_EQ(ReadFile(conf_), before_);
}

TEST_F(RepairTest, AServiceThatHasStoppedWorkingCarriesNothingOut) {
    const Impostor service(dir_ / "quorcachepinfiled", {"-f", conf_});
    EXPECT_EQ(RepairAll(false), kExitNoService);
    EXPECT_NE(talk_.find("the service has stopped working"), std::string::npos) << talk_;
    EXPECT_EQ(ReadFile(conf_), before_);
}

TEST_F(RepairTest, OnlyTheUnitsOwnProcessIsRestarted) {
    const Impostor service(dir_ / "quorcachepinfiled", {"-f", conf_});
    const std::string path = getenv("PATH");
    std::filesystem::create_directory(dir_ / "bin");
    WriteFile(dir_ / "bin/systemctl", "#!/bin/sh\necho 1\n");
    chmod((dir_ / "bin/systemctl").c_str(), 0755);
    setenv("PATH", ((dir_ / "bin") + ":" + path).c_str(), 1);
    EXPECT_EQ(RepairAll(true), kExitRefused);
    setenv("PATH", path.c_str(), 1);
    EXPECT_NE(talk_.find("stop it, run check --repair"), std::string::npos) << talk_;
    EXPECT_EQ(ReadFile(conf_), before_);
}

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
