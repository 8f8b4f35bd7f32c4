// SPDX-License-Identifier: MIT
// Repairing by requests: what is asked for, and what is left for a repair at rest.
#include "client/verbs/repair.h"

#include <gtest/gtest.h>
#include <sys/msg.h>

#include <algorithm>
#include <filesystem>

#include "client/show/exit_status.h"
#include "tests/unit/client/client_test.h"
#include "tests/unit/support/fake_ioctl.h"
#include "tests/unit/support/fake_platform.h"
#include "util/request.h"

namespace client {

namespace {

class RequestRepairTest : public QueueClientTest {
  protected:
    using Texts = std::vector<std::string>;

    // Makes the list of the volume: inode and relative path.
    void List(const std::vector<std::pair<uint32_t, std::string>>& entries) {
        std::string files;
        for (const auto& [inode, relative] : entries) {
            files +=
                (files.empty() ? "\"" : ",\"") + std::to_string(inode) + "\":\"" + relative + "\"";
        }
        WriteFile(dir_ / "conf", R"({"nextRequestNum":8,"volumes":{")" + mount_ +
                                     R"(":{"files":{)" + files + "}}}}");
    }
    // Nobody takes the requests, so that it never ends with them done.
    int RepairAll(const std::string& mountPath = "") {
        CheckOptions options;
        options.send.patience = 1;
        options.overcommit = overcommit_;
        report_ = RepairReport();
        testing::internal::CaptureStderr();
        const int status = RepairByRequests(dir_ / "conf", mountPath, options, report_);
        talk_ = testing::internal::GetCapturedStderr();
        std::sort(report_.left.begin(), report_.left.end());
        return status;
    }
    // The file names that the next message in the queue pins, "" when there is none.
    std::string NextPinned(int queue) {
        RequestMsg received = {};
        const ssize_t size = msgrcv(queue, &received, sizeof(received.body), 0, IPC_NOWAIT);
        return size < 0 ? "" : received.body.data;
    }
    std::string Rest(const std::string& relative, const std::string& text) {
        return "left for a repair at rest: " + mount_ + (relative.empty() ? "" : "/") + relative +
               text;
    }

    bool overcommit_ = false;
    RepairReport report_;
    std::string talk_;
};

TEST_F(RequestRepairTest, WhatLacksUnitsIsPinnedAgainAndTheRestIsNamed) {
    const int queue = MakeQueue();
    const std::string path = MakeAt("a", 8, 2);
    WriteBitmap({8, 20});
    List({{InodeOf(path), "a"}, {5, "gone"}});
    EXPECT_EQ(RepairAll(), kExitNoService) << talk_;
    EXPECT_EQ(report_.requests, 1U);
    EXPECT_EQ(report_.actions, Texts{path + ": pinned again"});
    EXPECT_EQ(report_.left,
              (Texts{Rest("gone", ": gone"), Rest("", ": 1 unit that no file needs")}));
    EXPECT_EQ(NextPinned(queue), path);
    EXPECT_EQ(NextPinned(queue), "");
}

TEST_F(RequestRepairTest, WhatDoesNotFitIntoTheCacheIsLeft) {
    const int queue = MakeQueue();
    const std::string path = MakeAt("a", 0, 17);
    LetTheCacheTell("", "");  // sixteen units
    List({{InodeOf(path), "a"}});
    EXPECT_EQ(RepairAll(), kExitDone) << talk_;
    EXPECT_EQ(report_.requests, 0U);
    ASSERT_EQ(report_.left.size(), 1U);
    EXPECT_EQ(report_.left[0],
              mount_ +
                  ": 0 bytes pinned or queued and 1.1 MiB more do not fit into the cache of "
                  "1.0 MiB; --overcommit pins it all the same");
    EXPECT_EQ(NextPinned(queue), "");
    overcommit_ = true;
    EXPECT_EQ(RepairAll(), kExitNoService) << talk_;
    EXPECT_EQ(NextPinned(queue), path);
}

TEST_F(RequestRepairTest, WhatReplacedAListedFileIsPinnedOnce) {
    const int queue = MakeQueue();
    const std::string path = MakeAt("a", 8);
    WriteBitmap({});
    List({{5, "a"}});
    EXPECT_EQ(RepairAll(), kExitNoService) << talk_;
    EXPECT_EQ(report_.actions, Texts{path + ": replaced, the file that is there now is pinned"});
    EXPECT_EQ(report_.left, Texts{Rest("a", ": replaced")});
    EXPECT_EQ(NextPinned(queue), path);

    WriteBitmap({8});
    List({{5, "a"}, {InodeOf(path), "a"}});
    EXPECT_EQ(RepairAll(), kExitDone) << talk_;
    EXPECT_EQ(report_.requests, 0U) << "it is pinned already";
    EXPECT_EQ(report_.left, Texts{Rest("a", ": replaced")});
}

TEST_F(RequestRepairTest, ARenamedFileIsPinnedAgainAtItsNewPath) {
    const int queue = MakeQueue();
    const std::string path = MakeAt("d/new", 8);
    List({{InodeOf(path), "old"}});
    EXPECT_EQ(RepairAll(), kExitNoService) << talk_;
    EXPECT_EQ(NextPinned(queue), path);
    EXPECT_EQ(report_.left, Texts{Rest("old", ": renamed")});
    const std::string blank = MakeAt("my file", 9);
    List({{InodeOf(blank), "old"}});
    EXPECT_EQ(RepairAll(), kExitDone) << talk_;
    EXPECT_EQ(report_.requests, 0U) << "no request can name it";
    EXPECT_EQ(report_.left.size(), 2U);
}

TEST_F(RequestRepairTest, WhatIsNotSentIsNoAction) {
    const std::string path = MakeAt("a", 8);
    List({{InodeOf(path), "a"}});
    EXPECT_EQ(RepairAll(), kExitNoService) << "there is no queue";
    EXPECT_EQ(report_.actions, Texts());
    EXPECT_EQ(report_.left, Texts{path + ": its request was not sent"});
}

TEST_F(RequestRepairTest, WhatCannotBeLookedAtIsNamedAndNothingIsSentWhereAllAgrees) {
    MakeQueue();
    const std::string path = MakeAt("a", 8);
    WriteBitmap({8});
    List({{InodeOf(path), "a"}});
    EXPECT_EQ(RepairAll(), kExitDone) << talk_;
    EXPECT_EQ(report_.actions.size() + report_.left.size() + report_.requests, 0U);
    g_platform.mappings[InodeOf(path)][0].result = -1;
    EXPECT_EQ(RepairAll(), kExitDone) << talk_;
    EXPECT_EQ(report_.requests, 0U);
    ASSERT_FALSE(report_.left.empty());
    EXPECT_NE(report_.left[0].find("cannot be looked at"), std::string::npos);
}

TEST_F(RequestRepairTest, ABitmapFileThatIsTooLongIsLeft) {
    MakeQueue();
    const std::string path = MakeAt("a", 8);
    WriteFile(mount_ + "/quorcachepinfile.bitmap", std::string(129, '\0'));
    List({{InodeOf(path), "a"}});
    EXPECT_EQ(RepairAll(), kExitDone) << talk_;
    EXPECT_EQ(report_.requests, 0U);
    EXPECT_EQ(report_.left,
              Texts{Rest("quorcachepinfile.bitmap", " is too long, so that every request fails")});
}

TEST_F(RequestRepairTest, AVolumeWithoutACacheIsLeftAlone) {
    MakeQueue();
    const std::string path = MakeAt("a", 8);
    WriteBitmap({});
    List({{InodeOf(path), "a"}});
    g_platform.configs.clear();
    EXPECT_EQ(RepairAll(), kExitDone) << talk_;
    EXPECT_EQ(report_.requests, 0U);
    EXPECT_EQ(report_.left, Texts{mount_ + ": has no cache that keeps pins now"});
}

}  // namespace

}  // namespace client
