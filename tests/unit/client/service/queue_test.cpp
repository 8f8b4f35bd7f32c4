// SPDX-License-Identifier: MIT
// The key file, read carefully, and sending into a real queue.
#include "client/service/queue.h"

#include <gtest/gtest.h>
#include <sys/msg.h>

#include "tests/unit/client/client_test.h"
#include "tests/unit/support/queue_space.h"
#include "util/message_queue.h"

namespace client {

namespace {

struct KeyRow {
    const char* what;
    const char* content;
    bool good;
    key_t key;
};

TEST(KeyFile, IsReadAsTheServiceReadsItAndNeverTrusted) {
    const TempDir dir;
    const KeyRow rows[] = {
        {"a key", "2016083976", true, 2016083976},
        {"with a newline", "123\n", true, 123},
        {"negative", "-5", true, -5},
        {"blanks before it", "  \t77", true, 77},
        {"something behind it", "12ab", true, 12},
        {"the first line counts", "1\n2\n", true, 1},
        {"the least", "-2147483648", true, INT32_MIN},
        {"empty", "", false, 0},
        {"no number", "abc", false, 0},
        {"nothing but a sign", "-", false, 0},
        {"beyond an int", "2147483648", false, 0},
        {"beyond everything", "99999999999999999999999999", false, 0},
        {"an empty line", "\n123", false, 0},
    };
    for (const KeyRow& row : rows) {
        key_t key = 0;
        std::string why;
        WriteFile(dir / "key", row.content);
        EXPECT_EQ(ReadKeyFile((dir / "key").c_str(), key, why), row.good) << row.what;
        EXPECT_EQ(key, row.key) << row.what;
        EXPECT_EQ(why.empty(), row.good) << row.what;
    }
    key_t key = 0;
    std::string why;
    EXPECT_FALSE(ReadKeyFile((dir / "nothing").c_str(), key, why));
    EXPECT_NE(why.find("there is no key file"), std::string::npos);
    EXPECT_FALSE(ReadKeyFile(dir.path().c_str(), key, why)) << "a directory";
}

using QueueTest = QueueClientTest;

TEST_F(QueueTest, AMissingQueueIsNamedByItsKey) {
    std::string why;
    EXPECT_EQ(OpenServerQueue(why), -1);
    EXPECT_NE(why.find("there is no key file"), std::string::npos) << why;
    WriteFile(dir_ / "key", "4711");
    EXPECT_EQ(OpenServerQueue(why), -1);
    EXPECT_NE(why.find("no message queue of the published key 4711"), std::string::npos) << why;
    EXPECT_EQ(QueuesInSpace(), 0) << "looking must not make one";
}

TEST_F(QueueTest, AMessageArrivesAsTheServiceReadsIt) {
    const int id = MakeQueue(2);
    std::string why;
    RequestMsg sent = {kRequestMsgType, {kRequestPinFiles, "/m", "/m/a"}};
    ASSERT_EQ(OpenServerQueue(why), id);
    ASSERT_EQ(SendNow(id, sent, why), SendOutcome::kSent) << why;
    RequestMsg received = {};
    ASSERT_EQ(msgrcv(id, &received, sizeof(received.body), 1, IPC_NOWAIT),
              static_cast<ssize_t>(sizeof(Request)));
    EXPECT_EQ(received.body.type, 1);
    EXPECT_STREQ(received.body.mountPath, "/m");
    EXPECT_STREQ(received.body.data, "/m/a");
}

TEST_F(QueueTest, AFullQueueIsNotWaitedFor) {
    const int id = MakeQueue(1);
    std::string why;
    const RequestMsg message = {kRequestMsgType, {kRequestReloadPinBlocks, "/m", ""}};
    EXPECT_EQ(SendNow(id, message, why), SendOutcome::kSent);
    EXPECT_EQ(SendNow(id, message, why), SendOutcome::kFull);
    EXPECT_EQ(why, "");
    QueueFacts facts;
    ASSERT_TRUE(ReadQueueFacts(facts, why));
    EXPECT_EQ(facts.messages, 1U);
    EXPECT_EQ(facts.bytes, sizeof(Request));
    EXPECT_EQ(facts.limit, sizeof(Request));
    EXPECT_EQ(facts.mode, 0644U);
    EXPECT_EQ(facts.id, id);
}

TEST_F(QueueTest, AQueueThatWasRemovedIsAFailure) {
    const int id = MakeQueue(1);
    std::string why;
    ASSERT_EQ(msgctl(id, IPC_RMID, nullptr), 0);
    const RequestMsg message = {kRequestMsgType, {kRequestReloadPinBlocks, "/m", ""}};
    EXPECT_EQ(SendNow(id, message, why), SendOutcome::kFailed);
    EXPECT_NE(why, "");
}

}  // namespace

}  // namespace client
