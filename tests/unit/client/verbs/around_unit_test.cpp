// SPDX-License-Identifier: MIT
// Work between a stop and a start of the unit, with a program in systemctl's place.
#include "client/verbs/around_unit.h"

#include <gtest/gtest.h>
#include <stdlib.h>
#include <sys/stat.h>

#include "client/show/exit_status.h"
#include "tests/unit/support/unit_test.h"

namespace client {

namespace {

class AroundUnitTest : public UnitTest {
  protected:
    void SetUp() override {
        UnitTest::SetUp();
        path_ = getenv("PATH");
        setenv("PATH", (std::string(dir_.path()) + ":" + path_).c_str(), 1);
        Answer("");
    }
    void TearDown() override {
        setenv("PATH", path_.c_str(), 1);
        UnitTest::TearDown();
    }
    // Lets the unit's process be 17, and the verb that is named fail.
    void Answer(const std::string& fails) {
        WriteFile(dir_ / "systemctl", "#!/bin/sh\necho \"$1\" >>" + (dir_ / "asked") +
                                          "\necho 17\n[ \"$1\" != \"" + fails + "\" ]\n");
        chmod((dir_ / "systemctl").c_str(), 0755);
        WriteFile(dir_ / "asked", "");
    }
    int Around(const std::vector<pid_t>& pids, const std::string& configPath = "/etc/conf") {
        std::vector<ServiceProcess> services(pids.size());
        for (size_t i = 0; i < pids.size(); ++i) {
            services[i].pid = pids[i];
        }
        testing::internal::CaptureStderr();
        const int status = AroundUnit(services, configPath, "the verb", [this] {
            WriteFile(dir_ / "asked", Asked() + "work\n");
            return 42;
        });
        talk_ = testing::internal::GetCapturedStderr();
        return status;
    }
    std::string Asked() { return ReadFile(dir_ / "asked"); }

    std::string path_;
    std::string talk_;
};

TEST_F(AroundUnitTest, TheWorkIsDoneBetweenStopAndStart) {
    EXPECT_EQ(Around({17}), 42);
    EXPECT_EQ(Asked(), "show\nstop\nwork\nstart\n");
    EXPECT_EQ(talk_, "");
}

TEST_F(AroundUnitTest, AServiceThatIsNotTheUnitsOneProcessIsLeftAlone) {
    for (const std::vector<pid_t>& pids : {std::vector<pid_t>{18}, {17, 18}}) {
        EXPECT_EQ(Around(pids), kExitRefused);
        EXPECT_NE(talk_.find("stop it, run the verb --config-path FILE"), std::string::npos)
            << talk_;
    }
    EXPECT_EQ(Around({17}, "/proc/17/root/conf"), kExitRefused);
    EXPECT_EQ(Asked().find("stop"), std::string::npos);
}

TEST_F(AroundUnitTest, AUnitThatCannotBeStoppedOrStartedIsSaid) {
    Answer("stop");
    EXPECT_EQ(Around({17}), kExitNoService);
    EXPECT_EQ(Asked(), "show\nstop\nstart\n") << "without the work, and left running";
    EXPECT_NE(talk_.find("cannot be stopped; nothing was changed"), std::string::npos) << talk_;
    Answer("start");
    EXPECT_EQ(Around({17}), kExitNoService);
    EXPECT_EQ(Asked(), "show\nstop\nwork\nstart\n");
    EXPECT_NE(talk_.find("cannot be started again"), std::string::npos) << talk_;
}

}  // namespace

}  // namespace client
