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

TEST_F(RepairTest, WhatWasSentIsToldAndWhatWasNot) {
    MakeQueue();
    EXPECT_EQ(RepairAll(), kExitNoService) << talk_;
    EXPECT_EQ(report_.requests, 1U);
    EXPECT_EQ(report_.actions, (Texts{"a: pinned again"}));
    EXPECT_EQ(report_.obstacles, (Texts{"gone: its request was not sent (taken off the list)"}));
}

}  // namespace

}  // namespace client
