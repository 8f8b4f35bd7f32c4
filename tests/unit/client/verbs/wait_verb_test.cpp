// SPDX-License-Identifier: MIT
// wait: what it waits for and how it ends.
#include <gtest/gtest.h>
#include <sys/msg.h>

#include "client/request/packing.h"
#include "client/show/exit_status.h"
#include "tests/unit/client/verbs/verbs_test.h"
#include "util/request.h"

namespace client {

namespace {

class WaitVerbTest : public VerbsTest {
  protected:
    void QueueReload(const std::string& mountPath) {
        WriteFile(config_, R"({"nextRequestNum":8,"requestQueue":["7"],"requests":{"7":{"type":)"
                           R"("reloadPinBlocks","mountPath":")" +
                               mountPath + R"(","data":null}}})");
    }
    void SendReload(int queue, const std::string& mountPath) {
        const RequestMsg msg = ToRequestMsg(VolumeMessage(kRequestReloadPinBlocks, mountPath));
        ASSERT_EQ(msgsnd(queue, &msg, sizeof(msg.body), 0), 0);
    }
};

TEST_F(WaitVerbTest, NothingQueuedIsDone) {
    MakeQueue();
    const auto service = Serve();
    const CallResult result = Run({"wait"});
    EXPECT_EQ(result.status, kExitDone) << result.talk;
    EXPECT_EQ(result.out, "nothing was queued\n");
}

TEST_F(WaitVerbTest, WhatIsQueuedIsWaitedForUntilItHasLeft) {
    const int queue = MakeQueue();
    QueueReload(mount_);
    SendReload(queue, mount_);
    const CallResult result = RunServed({"wait", "--json"}, queue, 1, [this](int) {
        WriteFile(config_, R"({"nextRequestNum":9})");
    });
    EXPECT_EQ(result.status, kExitDone) << result.talk;
    const Json::Value report = ParseReport(result.out);
    EXPECT_EQ(Shape(report), "exitStatus:n left:n requests:n schema:n verb:s volume:0");
    EXPECT_EQ(report["left"], report["requests"]);
}

TEST_F(WaitVerbTest, WhatComesMeanwhileIsWaitedForToo) {
    const int queue = MakeQueue();
    SendReload(queue, mount_);
    const CallResult result = RunServed({"wait", "--timeout", "1", "--json"}, queue, 1,
                                        [this](int) { QueueReload(mount_); });
    EXPECT_EQ(result.status, kExitTimedOut) << result.talk;
    const Json::Value report = ParseReport(result.out);
    EXPECT_EQ(report["requests"], 1);
    EXPECT_EQ(report["left"], 0);
}

TEST_F(WaitVerbTest, OtherVolumesAreNotWaitedFor) {
    const int queue = MakeQueue();
    QueueReload("/mnt/away");
    SendReload(queue, "/mnt/away");
    const auto service = Serve();
    EXPECT_EQ(Run({"wait", mount_}).status, kExitDone);
    EXPECT_EQ(Run({"wait", "--timeout", "1", "/mnt/away"}).status, kExitTimedOut);
    EXPECT_EQ(Report({"wait", "--timeout", "1"}, kExitTimedOut)["left"], 0);
    EXPECT_EQ(Shape(Report({"wait", "/nowhere"}, kExitRefused)), kRefusedShape);
}

TEST_F(WaitVerbTest, NobodyToDoItEndsIt) {
    MakeQueue();
    QueueReload(mount_);
    const CallResult result = Run({"wait"});
    EXPECT_EQ(result.status, kExitNoService);
    EXPECT_NE(result.talk.find("does not run here"), std::string::npos) << result.talk;
    config_ = dir_.path();  // cannot be read
    EXPECT_EQ(Run({"wait"}).status, kExitNoService);
}

}  // namespace

}  // namespace client
