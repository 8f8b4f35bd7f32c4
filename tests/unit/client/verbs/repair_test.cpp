// SPDX-License-Identifier: MIT
// What a repair says it has done when not all of it could be.
#include "client/verbs/repair.h"

#include <gtest/gtest.h>
#include <sys/msg.h>

#include <filesystem>

#include "client/show/exit_status.h"
#include "tests/unit/client/client_test.h"
#include "util/request.h"

namespace client {

namespace {

constexpr uint64_t kUnit = 128;  // sectors

// A volume on which `a` lacks its bits, and `gone` is on the list and nowhere else.
class RepairTest : public QueueClientTest {
  protected:
    void SetUp() override {
        QueueClientTest::SetUp();
        if (IsSkipped()) {
            return;
        }
        const std::string path = Make("a");
        Place(path, {{8 * kUnit, 2 * kUnit}});
        WriteBitmap({});
        WriteFile(dir_ / "conf", R"({"nextRequestNum":8,"volumes":{")" + mount_ +
                                     R"(":{"files":{")" + std::to_string(InodeOf(path)) +
                                     R"(":"a","5":"gone"}}}})");
        service_.configPath = dir_ / "conf";
    }
    // Nobody takes the requests, so that it always ends without them done.
    int RepairAll() {
        std::string why;
        EXPECT_TRUE(ReadConfigState(service_.configPath, service_.state, why)) << why;
        const std::vector<Volume> volumes = Volumes();
        SendOptions options;
        options.patience = 1;
        testing::internal::CaptureStderr();
        const int status = Repair(CheckVolumes(service_.state, volumes, mount_), volumes, service_,
                                  options, report_);
        talk_ = testing::internal::GetCapturedStderr();
        return status;
    }
    using Texts = std::vector<std::string>;

    ServiceState service_;
    RepairReport report_;
    std::string talk_;
};

TEST_F(RepairTest, WhatWasSentIsTold) {
    MakeQueue();
    EXPECT_EQ(RepairAll(), kExitNoService) << talk_;
    EXPECT_EQ(report_.requests, 2U);
    EXPECT_EQ(report_.actions, (Texts{"a: pinned again", "gone: taken off the list"}));
    EXPECT_EQ(report_.obstacles, Texts());
}

TEST_F(RepairTest, WhatWasNotSentIsNoAction) {
    MakeQueue(1);
    EXPECT_EQ(RepairAll(), kExitTimedOut) << talk_;
    EXPECT_EQ(report_.requests, 1U);
    EXPECT_EQ(report_.actions, (Texts{"gone: taken off the list"}));
    EXPECT_EQ(report_.obstacles, (Texts{"a: its request was not sent (pinned again)"}));
}

TEST_F(RepairTest, WithoutLinksFilesAreStillPinnedAgain) {
    MakeQueue();
    // No link can be made to a directory.
    std::filesystem::remove(mount_ + "/quorcachepinfile.bitmap");
    std::filesystem::create_directory(mount_ + "/quorcachepinfile.bitmap");
    EXPECT_EQ(RepairAll(), kExitNoService) << talk_;
    EXPECT_EQ(report_.requests, 1U);
    EXPECT_EQ(report_.actions, (Texts{"a: pinned again"}));
    ASSERT_EQ(report_.obstacles.size(), 2U);
    EXPECT_NE(report_.obstacles[0].find("Operation not permitted"), std::string::npos);
    EXPECT_EQ(report_.obstacles[1], "gone: its request was not sent (taken off the list)");
}

TEST_F(RepairTest, TheBitmapFileIsNotReleasedWhereItLiesInAUnitThatIsNeeded) {
    const std::string cut = Make("my file");
    Place(cut, {{3 * kUnit, 8}});
    WriteBitmap({3, 9});
    WriteFile(dir_ / "conf", R"({"nextRequestNum":8,"volumes":{")" + mount_ + R"(":{"files":{")" +
                                 std::to_string(InodeOf(cut)) + R"(":"my","5":"gone"}}}})");
    Place(mount_ + "/quorcachepinfile.bitmap", {{3 * kUnit + 8, 8}});
    const int queue = MakeQueue();
    EXPECT_EQ(RepairAll(), kExitNoService) << talk_;
    EXPECT_EQ(report_.requests, 1U) << "that for the entry";
    EXPECT_EQ(report_.unitsCleared, 1U);
    ASSERT_EQ(report_.obstacles.size(), 1U);
    EXPECT_NE(report_.obstacles[0].find("no request is sent to hand the driver the bitmap"),
              std::string::npos);

    Place(mount_ + "/quorcachepinfile.bitmap", {{4 * kUnit, 8}});
    WriteBitmap({3, 9});
    report_ = RepairReport();
    RequestMsg received = {};
    ASSERT_GT(msgrcv(queue, &received, sizeof(received.body), 0, IPC_NOWAIT), 0);
    EXPECT_EQ(RepairAll(), kExitNoService) << talk_;
    EXPECT_EQ(report_.requests, 2U);
    EXPECT_EQ(report_.obstacles, Texts());
}

}  // namespace

}  // namespace client
