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

class RestartTest : public RepairTest {
  protected:
    void SetUp() override {
        RepairTest::SetUp();
        path_ = getenv("PATH");
        std::filesystem::create_directory(dir_ / "bin");
        setenv("PATH", ((dir_ / "bin") + ":" + path_).c_str(), 1);
    }
    void TearDown() override {
        setenv("PATH", path_.c_str(), 1);
        RepairTest::TearDown();
    }
    // Puts a script in systemctl's place: what it does when it is asked for the main process, told
    // to stop the unit, and told to start it. It keeps the configuration file as it is then.
    void Systemctl(const std::string& show, const std::string& stop, const std::string& start) {
        const std::string name = dir_ / "bin/systemctl";
        WriteFile(name, "#!/bin/sh\ncp " + conf_ + " " + (dir_ / "at-") + "$1\ncase $1 in\nshow) " +
                            show + ";;\nstop) " + stop + ";;\nstart) " + start + ";;\nesac\n");
        chmod(name.c_str(), 0755);
    }
    // As systemctl does it, this waits until the process has ended.
    static std::string Ending(const Impostor& service) {
        const std::string pid = std::to_string(service.pid());
        return "kill -9 " + pid + "; until grep -q '^State:.Z' /proc/" + pid +
               "/status; do :; done";
    }
    std::string path_;
};

TEST_F(RestartTest, TheRepairStandsBetweenStopAndStart) {
    const Impostor service(dir_ / "quorcachepinfiled", {"-f", conf_});
    Systemctl("echo " + std::to_string(service.pid()), Ending(service), ":");
    EXPECT_EQ(RepairAll(true), kExitDone) << talk_;
    EXPECT_EQ(ReadFile(dir_ / "at-stop"), before_);
    EXPECT_EQ(ReadFile(dir_ / "at-start").find("gone"), std::string::npos);
    EXPECT_EQ(talk_, "");
}

TEST_F(RestartTest, WhatCannotBeStoppedIsNotRepairedAndStartedAllTheSame) {
    const Impostor service(dir_ / "quorcachepinfiled", {"-f", conf_});
    Systemctl("echo " + std::to_string(service.pid()), "exit 1", ":");
    EXPECT_EQ(RepairAll(true), kExitNoService);
    EXPECT_NE(talk_.find("cannot be stopped; nothing was changed\n"), std::string::npos) << talk_;
    EXPECT_EQ(ReadFile(conf_), before_);
    EXPECT_TRUE(Exists(dir_ / "at-start"));
}

TEST_F(RestartTest, AServiceThatDoesNotStartAgainIsAFailureWhateverWasRepaired) {
    const Impostor service(dir_ / "quorcachepinfiled", {"-f", conf_});
    Systemctl("echo " + std::to_string(service.pid()), Ending(service), "exit 1");
    EXPECT_EQ(RepairAll(true), kExitNoService);
    EXPECT_NE(talk_.find("cannot be started again; systemctl status shows why\n"),
              std::string::npos)
        << talk_;
    EXPECT_EQ(ReadFile(conf_).find("gone"), std::string::npos);
}

TEST_F(RestartTest, AServiceThatLivesOnAfterItsStopIsNotRepairedUnder) {
    const Impostor service(dir_ / "quorcachepinfiled", {"-f", conf_});
    Systemctl("echo " + std::to_string(service.pid()), ":", ":");
    EXPECT_EQ(RepairAll(true), kExitDone);
    EXPECT_EQ(ReadFile(conf_), before_) << "the list may be read by now";
}

TEST_F(RestartTest, OnlyTheUnitsOwnProcessIsRestarted) {
    const Impostor service(dir_ / "quorcachepinfiled", {"-f", conf_});
    Systemctl("echo 1", ":", ":");
    EXPECT_EQ(RepairAll(true), kExitRefused);
    EXPECT_NE(talk_.find("stop it, run check --repair"), std::string::npos) << talk_;
    EXPECT_EQ(ReadFile(conf_), before_);
    EXPECT_FALSE(Exists(dir_ / "at-stop"));
}

TEST_F(RestartTest, OfTwoServicesNoneIsRestarted) {
    const Impostor one(dir_ / "quorcachepinfiled", {"-f", conf_});
    const Impostor two(dir_ / "quorcachepinfiled", {"-f", conf_});
    Systemctl("echo " + std::to_string(one.pid()), ":", ":");
    EXPECT_EQ(RepairAll(true), kExitRefused);
    EXPECT_FALSE(Exists(dir_ / "at-stop"));
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
