// SPDX-License-Identifier: MIT
// reload, pend and release.
#include <gtest/gtest.h>
#include <sys/msg.h>

#include "client/show/exit_status.h"
#include "tests/unit/client/verbs/verbs_test.h"
#include "tests/unit/support/fake_platform.h"
#include "util/request.h"

namespace client {

namespace {

class VolumeVerbsTest : public VerbsTest {};

TEST_F(VolumeVerbsTest, VolumeVerbsTellTheVolume) {
    MakeQueue();
    const auto service = Serve();
    for (const char* const verb : {"reload", "pend", "release"}) {
        const Json::Value report = Report({verb, mount_ + "//"}, 0);
        EXPECT_EQ(Shape(report), "exitStatus:n schema:n sent:n verb:s volume:s");
        EXPECT_EQ(report["volume"], mount_);
        EXPECT_EQ(report["sent"], 1);
        EXPECT_EQ(Shape(Report({verb, "/nowhere"}, 5)),
                  "error:s exitStatus:n refused:a schema:n sent:n verb:s");
    }
}

struct VolumeVerbRow {
    const char* verb;
    RequestType type;
    int withoutCache;  // exit status
};

TEST_F(VolumeVerbsTest, EachSendsItsRequestAndOnlyReloadNeedsACache) {
    const int queue = MakeQueue();
    const auto service = Serve();
    const VolumeVerbRow rows[] = {{"reload", kRequestReloadPinBlocks, kExitRefused},
                                  {"pend", kRequestAddPendingSpace, kExitDone},
                                  {"release", kRequestRemovePendingSpace, kExitDone}};
    for (const VolumeVerbRow& row : rows) {
        const CallResult result = Run({row.verb, mount_});
        EXPECT_EQ(result.status, kExitDone) << row.verb << result.talk;
        EXPECT_EQ(result.out, mount_ + ": " + row.verb + " sent\n");
        RequestMsg sent = {};
        ASSERT_GT(msgrcv(queue, &sent, sizeof(sent.body), 0, IPC_NOWAIT), 0) << row.verb;
        EXPECT_EQ(sent.body.type, row.type) << row.verb;
        EXPECT_STREQ(sent.body.mountPath, mount_.c_str()) << row.verb;
    }
    g_platform.stats["/dev/ssd1"].state = 0;
    for (const VolumeVerbRow& row : rows) {
        EXPECT_EQ(Run({row.verb, mount_}).status, row.withoutCache) << row.verb;
    }
    EXPECT_EQ(Waiting(queue), 2U);
}

TEST_F(VolumeVerbsTest, WithNobodyToTakeItARequestIsSentAndNotSaidToBeTaken) {
    const int queue = MakeQueue();
    for (const char* const verb : {"reload", "pend", "release"}) {
        const CallResult result = Run({verb, mount_});
        EXPECT_EQ(result.status, kExitNoService) << verb;
        EXPECT_EQ(result.out, "") << verb;
        EXPECT_NE(result.talk.find("the service does not run here; the requests wait"),
                  std::string::npos)
            << result.talk;
    }
    EXPECT_EQ(Waiting(queue), 3U);
}

TEST_F(VolumeVerbsTest, ReloadTakesAVolumeOrMissing) {
    EXPECT_EQ(Run({"reload"}).status, kExitUsage);
    EXPECT_EQ(Run({"reload", "--missing", mount_}).status, kExitUsage);
    EXPECT_EQ(Run({"pend", "--missing"}).status, kExitUsage);
}

// A cache that does not tell what it holds has nothing missing; so the queue is not needed either.
TEST_F(VolumeVerbsTest, WithNothingMissingNothingIsSent) {
    WriteBitmap({1, 2});
    const CallResult result = Run({"reload", "--missing"});
    EXPECT_EQ(result.status, kExitDone) << result.talk;
    EXPECT_EQ(result.out, "all pinned units are in their caches\n");
    EXPECT_EQ(Shape(Report({"reload", "--missing"}, kExitDone)),
              "exitStatus:n schema:n sent:n verb:s volumes:a");
}

TEST_F(VolumeVerbsTest, PinsThatNoCacheKeepsAreNotSaidToBeInIt) {
    WriteBitmap({1, 2});
    g_platform.stats["/dev/ssd1"].state = 0;
    const CallResult result = Run({"reload", "--missing"});
    EXPECT_EQ(result.status, kExitNotInForce);
    EXPECT_EQ(result.out, "nothing was sent\n");
    EXPECT_NE(
        result.talk.find(mount_ + ": what is pinned is not in force: the cache does not serve"),
        std::string::npos)
        << result.talk;
}

TEST_F(VolumeVerbsTest, AWaitThatCannotEndSendsNothing) {
    const int queue = MakeQueue();
    config_ = dir_ / "missing";
    const CallResult result = Run({"reload", "--wait", mount_});
    EXPECT_EQ(result.status, kExitNoService);
    EXPECT_NE(result.talk.find("; nothing was sent"), std::string::npos) << result.talk;
    EXPECT_EQ(Waiting(queue), 0U);
}

TEST_F(VolumeVerbsTest, AReloadThatWasWaitedForIsCounted) {
    const int queue = MakeQueue();
    WriteBitmap({1, 2});
    WriteFile(config_, R"({"nextRequestNum":5})");
    const CallResult result = RunServed({"reload", "--wait", mount_}, queue, 1, [this](int) {
        WriteFile(config_, R"({"nextRequestNum":6})");
    });
    EXPECT_EQ(result.status, kExitDone) << result.talk;
    EXPECT_EQ(result.out, mount_ + ": reloaded\n  units  2, set 2\n");
}

}  // namespace

}  // namespace client
