// SPDX-License-Identifier: MIT
// doctor: how findings are shown, the exit status, and what the fix does.
#include <gtest/gtest.h>

#include <sys/msg.h>

#include "client/show/exit_status.h"
#include "tests/unit/client/verbs/verbs_test.h"
#include "util/request.h"

namespace client {

namespace {

class DoctorVerbTest : public VerbsTest {};

TEST_F(DoctorVerbTest, DoctorTellsFindingsAndWhatItDid) {
    const Json::Value report = Report({"doctor"}, 3);
    EXPECT_EQ(Shape(report), "done:a exitStatus:n findings:a schema:n verb:s");
    for (const Json::Value& finding : report["findings"]) {
        const std::string shape = Shape(finding);
        EXPECT_TRUE(shape == "health:s remedy:s subject:s text:s" ||
                    shape == "health:s remedy:0 subject:s text:s")
            << shape;
    }
}

TEST_F(DoctorVerbTest, FindingsAreLinesAndARemedyStandsBelowIts) {
    WriteBitmap({4});
    const CallResult result = Run({"doctor"});
    EXPECT_EQ(result.status, kExitNoService);
    EXPECT_EQ(result.talk, "");
    const size_t finding = result.out.find("bad ");
    const size_t remedy = result.out.find("remedy: start the service\n");
    EXPECT_LT(finding, remedy) << result.out;
    EXPECT_NE(remedy, std::string::npos) << result.out;
    EXPECT_NE(result.out.find("volume " + mount_), std::string::npos) << result.out;
}

TEST_F(DoctorVerbTest, TheFixSizesTheQueueAndTakesAwayWhatNobodyTakes) {
    const int queue = MakeQueue(10);
    const long message[4] = {7, 0, 0, 0};
    ASSERT_EQ(msgsnd(queue, message, sizeof(message) - sizeof(long), IPC_NOWAIT), 0);
    const CallResult looked = Run({"doctor"});
    EXPECT_EQ(looked.out.find("fixed: "), std::string::npos) << looked.out;
    EXPECT_EQ(Waiting(queue), 1U) << "looking changes nothing";
    const CallResult fixed = Run({"doctor", "--fix"});
    EXPECT_EQ(fixed.status, kExitNoService) << "the service does not run all the same";
    EXPECT_NE(fixed.out.find("fixed: took away "), std::string::npos) << fixed.out;
    EXPECT_NE(fixed.out.find("fixed: the queue has room for 1024 requests now\n"),
              std::string::npos)
        << fixed.out;
    EXPECT_NE(fixed.talk.find("taking away messages"), std::string::npos) << fixed.talk;
    EXPECT_EQ(Waiting(queue), 0U);
    struct msqid_ds record = {};
    ASSERT_EQ(msgctl(queue, IPC_STAT, &record), 0);
    EXPECT_EQ(record.msg_qbytes, 1024 * sizeof(Request));
    EXPECT_EQ(Report({"doctor", "--fix"}, kExitNoService)["done"].size(), 0U) << "nothing is left";
}

}  // namespace

}  // namespace client
