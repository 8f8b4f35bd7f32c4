// SPDX-License-Identifier: MIT
#include <gtest/gtest.h>

#include "client/show/exit_status.h"
#include "tests/unit/client/verbs/verbs_test.h"

namespace client {

namespace {

class ForgetVerbTest : public VerbsTest {
  protected:
    void SetUp() override {
        VerbsTest::SetUp();
        if (geteuid() != 0) {
            GTEST_SKIP() << "only root sees whether the service runs";
        }
        WriteFile(config_, R"({"nextRequestNum": 4, "requestQueue": ["1", "2", "3"], "requests": {
            "1": {"type": "reloadPinBlocks", "mountPath": "/mnt/gone", "data": null},
            "2": {"type": "reloadPinBlocks", "mountPath": "/mnt/kept", "data": null},
            "3": {"type": "reloadPinBlocks", "mountPath": "/mnt/gone", "data": null}},
            "volumes": {"/mnt/gone": {"files": {"12": "a"}},
                        "/mnt/kept": {"files": {"13": "b"}}}})");
    }

    Json::Value Stored() { return ParseReport(ReadFile(config_)); }
};

TEST_F(ForgetVerbTest, ListAndRequestsGoAndThoseOfOthersStay) {
    const CallResult result = Run({"forget", "/mnt/gone"});
    EXPECT_EQ(result.status, kExitDone) << result.talk;
    EXPECT_EQ(result.out, "/mnt/gone: forgotten\n");
    const Json::Value stored = Stored();
    EXPECT_EQ(stored["volumes"].getMemberNames(), std::vector<std::string>{"/mnt/kept"});
    EXPECT_EQ(stored["requests"].getMemberNames(), std::vector<std::string>{"2"});
    ASSERT_EQ(stored["requestQueue"].size(), 1U);
    EXPECT_EQ(stored["requestQueue"][0], "2");
    EXPECT_EQ(stored["nextRequestNum"], 4);
}

// As the service leaves an emptied queue.
TEST_F(ForgetVerbTest, AnEmptiedQueueIsNull) {
    EXPECT_EQ(Run({"forget", "/mnt/kept"}).status, kExitDone);
    EXPECT_EQ(Run({"forget", "/mnt/gone"}).status, kExitDone);
    EXPECT_TRUE(Stored()["requestQueue"].isNull());
    EXPECT_EQ(Stored()["volumes"].size(), 0U);
}

TEST_F(ForgetVerbTest, AVolumeThatIsThereOrNotNamedIsRefused) {
    const std::string before = ReadFile(config_);
    EXPECT_NE(Run({"forget", "/mnt/other"}).talk.find("neither list nor queue names this volume"),
              std::string::npos);
    EXPECT_NE(Run({"forget", mount_}).talk.find("it is mounted; unpin its files instead"),
              std::string::npos);
    EXPECT_EQ(Shape(Report({"forget", mount_}, kExitRefused)), kRefusedShape);
    EXPECT_EQ(ReadFile(config_), before);
}

}  // namespace

}  // namespace client
