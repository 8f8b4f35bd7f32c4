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

}  // namespace

}  // namespace client
