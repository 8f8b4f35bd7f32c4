// SPDX-License-Identifier: MIT
// Messages that the service could not take: found, and taken away without touching the others.
#include "client/service/queue_look.h"

#include <errno.h>
#include <gtest/gtest.h>
#include <string.h>
#include <sys/ipc.h>
#include <sys/msg.h>
#include <unistd.h>

#include <thread>

#include "client/request/packing.h"
#include "tests/unit/client/client_test.h"

namespace client {

namespace {

class QueueLookTest : public QueueClientTest {
  protected:
    void SetUp() override {
        QueueClientTest::SetUp();
        if (!IsSkipped()) {
            id_ = MakeQueue();
            file_ = Make("a");
        }
    }
    void Send(const RequestMsg& msg, size_t bytes = sizeof(Request)) const {
        ASSERT_EQ(msgsnd(id_, &msg, bytes, IPC_NOWAIT), 0) << strerror(errno);
    }
    void SendRaw(long mtype, size_t bytes) const {
        std::vector<long> words(bytes / sizeof(long) + 2);
        memset(words.data(), 'x', words.size() * sizeof(long));
        words[0] = mtype;
        ASSERT_EQ(msgsnd(id_, words.data(), bytes, IPC_NOWAIT), 0) << strerror(errno);
    }
    RequestMsg Pin(const std::string& data) const {
        return ToRequestMsg({kRequestPinFiles, mount_, data, "", 1, {}});
    }
    RequestMsg Volume(RequestType type, const std::string& mountPath) const {
        return ToRequestMsg(VolumeMessage(type, mountPath));
    }
    std::vector<WaitingMessage> Look() const {
        std::vector<WaitingMessage> messages;
        std::string why;
        EXPECT_TRUE(LookAtMessages(id_, messages, why)) << why;
        return messages;
    }
    // What is left, in order: type and length of each.
    std::vector<std::pair<long, size_t>> Left() const {
        std::vector<std::pair<long, size_t>> left;
        for (const WaitingMessage& message : Look()) {
            left.emplace_back(message.mtype, message.bytes);
        }
        return left;
    }

    int id_ = -1;
    std::string file_;
};

TEST_F(QueueLookTest, LookingTakesNothing) {
    Send(Pin(file_));
    SendRaw(9, 20);
    EXPECT_EQ(Look().size(), 2U);
    EXPECT_EQ(Look().size(), 2U);
}

TEST_F(QueueLookTest, EachKindOfBadMessageIsKnown) {
    Send(Pin(file_));
    Send(Volume(kRequestAddPendingSpace, ""));
    Send(Volume(kRequestReloadPinBlocks, mount_));
    const size_t good = 3;
    SendRaw(7, 100);
    SendRaw(1, 1541);
    Send(Volume(kRequestReloadPinBlocks, ""));
    Send(Pin(""));
    Send(Pin(file_ + "x"));
    Send(Pin("/etc/passwd"));
    Send(Pin(file_), 700);
    const std::vector<WaitingMessage> messages = Look();
    ASSERT_EQ(messages.size(), good + 7);
    for (size_t i = 0; i < good; ++i) {
        EXPECT_EQ(messages[i].problem, "") << i;
        EXPECT_FALSE(messages[i].ignored || messages[i].endsIntake) << i;
    }
    EXPECT_TRUE(messages[3].ignored);
    for (size_t i = 4; i < 9; ++i) {
        EXPECT_TRUE(messages[i].endsIntake) << messages[i].problem;
        EXPECT_FALSE(messages[i].removable) << "a good one is before it";
    }
    EXPECT_TRUE(messages[3].removable);
    EXPECT_NE(messages[9].problem.find("700 bytes"), std::string::npos) << messages[9].problem;
    EXPECT_FALSE(messages[9].endsIntake);
}

TEST_F(QueueLookTest, WhatBlocksAndWhatIsIgnoredIsTakenAwayAndTheRestStaysInOrder) {
    SendRaw(7, 100);
    SendRaw(1, 2000);
    Send(Pin(file_ + "x"));
    Send(Pin(file_));
    SendRaw(8, 50);
    SendRaw(1, 1600);
    Send(Volume(kRequestReloadPinBlocks, mount_));
    std::vector<std::string> taken;
    std::string why;
    ASSERT_TRUE(TakeAwayBad(id_, taken, why)) << why;
    // The long one behind a good one must stay: taking it would take the good one first.
    EXPECT_EQ(taken.size(), 4U);
    EXPECT_EQ(Left(), (std::vector<std::pair<long, size_t>>{{1, 1540}, {1, 1600}, {1, 1540}}));
    RequestMsg received = {};
    ASSERT_GT(msgrcv(id_, &received, sizeof(received.body), 1, IPC_NOWAIT), 0);
    EXPECT_EQ(received.body.data, file_);
    ASSERT_TRUE(TakeAwayBad(id_, taken, why)) << why;
    EXPECT_EQ(Left(), (std::vector<std::pair<long, size_t>>{{1, 1540}}));
}

TEST_F(QueueLookTest, WhatTheServiceWillTakeIsCountedByVolume) {
    uint64_t count = 7;
    EXPECT_TRUE(CountWaiting("", count));
    EXPECT_EQ(count, 0U);
    Send(Pin(file_));
    Send(Volume(kRequestReloadPinBlocks, "/mnt/other"));
    SendRaw(9, 20);
    EXPECT_TRUE(CountWaiting("", count));
    EXPECT_EQ(count, 2U) << "what the service never reads would be waited for, for ever";
    EXPECT_TRUE(CountWaiting("/mnt/other", count));
    EXPECT_EQ(count, 1U);
    WriteFile(dir_ / "key", "no key");
    EXPECT_FALSE(CountWaiting("", count));
    EXPECT_EQ(count, 0U);
}

TEST_F(QueueLookTest, AGoodQueueIsLeftAlone) {
    Send(Pin(file_));
    std::vector<std::string> taken;
    std::string why;
    EXPECT_TRUE(TakeAwayBad(id_, taken, why));
    EXPECT_TRUE(taken.empty());
    EXPECT_EQ(Left().size(), 1U);
}

TEST_F(QueueLookTest, MessagesThatNobodyTakesStandStill) {
    EXPECT_FALSE(MessagesStandStill(id_)) << "none waits";
    SendRaw(7, 100);
    EXPECT_FALSE(MessagesStandStill(id_)) << "none that the service would take";
    Send(Volume(kRequestReloadPinBlocks, mount_));
    EXPECT_TRUE(MessagesStandStill(id_));
    Send(Volume(kRequestReloadPinBlocks, mount_));
    std::thread service([this] {
        RequestMsg taken = {};
        usleep(200000);
        EXPECT_GT(msgrcv(id_, &taken, sizeof(taken.body), 1, 0), 0);
    });
    EXPECT_FALSE(MessagesStandStill(id_));
    service.join();
}

}  // namespace

}  // namespace client
