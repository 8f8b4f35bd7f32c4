// SPDX-License-Identifier: MIT
// Every way in which the queue cannot be had, and what is left behind.
#include <errno.h>
#include <gtest/gtest.h>
#include <sys/msg.h>
#include <unistd.h>

#include <string>

#include "tests/unit/support/fake_files.h"
#include "tests/unit/support/fake_system.h"
#include "tests/unit/support/log_capture.h"
#include "tests/unit/util/message_queue_fixture.h"
#include "util/message_queue.h"

namespace {

class MessageQueueFailureTest : public MessageQueueFixture {};

TEST_F(MessageQueueFailureTest, AnEmptyKeyFileOfAnExistingQueueIsReadThreeTimes) {
    ASSERT_NE(MsgQueueGet(path_.c_str()), -1);
    WriteFile(path_, "");

    AtEveryLogSetting([&](LogCapture& log) {
        int opened = CallCount(Call::kFopen);
        EXPECT_EQ(MsgQueueGet(path_.c_str()), -1);
        EXPECT_TRUE(log.Shows(
            Lines{kLog.Enter("MsgQueueGet"), kLog.Enter("MsgCreateExclusive"), Generated(FileKey()),
                  AlreadyExists(FileKey(), EEXIST), kQueueExists} +
            EmptyReads(3) +
            Lines{kLog.Error("MsgQueueGet",
                             "Can't find the message queue's key from file (" + path_ + ")"),
                  kLog.Leave("MsgQueueGet")}));
        EXPECT_EQ(CallCount(Call::kFopen), opened + 3);
    });
    EXPECT_TRUE(SleepsTaken().empty()) << "back to back";
    EXPECT_EQ(ReadFile(path_), "");
    EXPECT_EQ(QueuesInSpace(), 1);
}

TEST_F(MessageQueueFailureTest, AKeyWithoutAQueueIsTriedOnce) {
    ASSERT_NE(MsgQueueGet(path_.c_str()), -1);
    WriteFile(path_, "4711\n");

    AtEveryLogSetting([&](LogCapture& log) {
        int gets = CallCount(Call::kMsgget);
        EXPECT_EQ(MsgQueueGet(path_.c_str()), -1);
        EXPECT_TRUE(log.Shows(
            Lines{kLog.Enter("MsgQueueGet"), kLog.Enter("MsgCreateExclusive"), Generated(FileKey()),
                  AlreadyExists(FileKey(), EEXIST), kQueueExists,
                  kLog.Verbose("FileReadString", "Get text = 4711\n"),
                  kLog.Verbose("GetMsgKey", "Get Key = 4711"),
                  kLog.Error("MsgQueueGet", "Can't open message queue: No such file or directory"),
                  kLog.Leave("MsgQueueGet")}));
        EXPECT_EQ(CallCount(Call::kMsgget), gets + 2);
    });
    EXPECT_EQ(QueuesInSpace(), 1) << "opening does not create";
    EXPECT_EQ(ReadFile(path_), "4711\n");
}

TEST_F(MessageQueueFailureTest, ExclusiveCreationThatFailsForAnotherReasonLeadsToTheKeyFileToo) {
    int id = MsgQueueGet(path_.c_str());
    ASSERT_NE(id, -1);

    for (int error : {EACCES, ENOSPC, ENOMEM}) {
        AtEveryLogSetting([&](LogCapture& log) {
            FailCall(Call::kMsgget, 1, error);
            EXPECT_EQ(MsgQueueGet(path_.c_str()), id);
            EXPECT_TRUE(log.Shows(
                Lines{kLog.Enter("MsgQueueGet"), kLog.Enter("MsgCreateExclusive"),
                      Generated(FileKey()), AlreadyExists(FileKey(), error), kQueueExists} +
                KeyRead(FileKey()) +
                Lines{kLog.Verbose("MsgQueueGet", "Get message queue by id (" + std::to_string(id) +
                                                      ") successfully"),
                      kLog.Leave("MsgQueueGet")}));
        });
    }
}

TEST_F(MessageQueueFailureTest, AKeyFileThatCannotBeMade) {
    std::string path = dir_ / "missing/server.key";
    const Lines creation = {
        kLog.Enter("MsgCreateExclusive"),
        kLog.Error("FileWriteString", "Can't open file (" + path + ")"),
        kLog.Error("MsgCreateExclusive", "Create file (" + path + ") failed"),
    };
    const Lines read = {kLog.Error("FileReadString", "Can't open file (" + path + ")"),
                        kLog.Error("GetMsgKey", "Can't get message key from file (" + path + ")")};

    AtEveryLogSetting([&](LogCapture& log) {
        EXPECT_EQ(MsgCreateExclusive(path.c_str()), -1);
        EXPECT_TRUE(log.Shows(creation));
        EXPECT_EQ(MsgQueueGet(path.c_str()), -1);
        EXPECT_TRUE(log.Shows(
            Lines{kLog.Enter("MsgQueueGet")} + creation + Lines{kQueueExists} + read + read + read +
            Lines{kLog.Error("MsgQueueGet",
                             "Can't find the message queue's key from file (" + path + ")"),
                  kLog.Leave("MsgQueueGet")}));
    });
    EXPECT_EQ(QueuesInSpace(), 0);
    EXPECT_EQ(CallCount(Call::kMsgget), 0);
}

TEST_F(MessageQueueFailureTest, AFileWithoutAKey) {
    WriteFile(path_, "");
    AtEveryLogSetting([&](LogCapture& log) {
        FailCall(Call::kFtok, 1, EACCES);
        EXPECT_EQ(MsgCreateExclusive(path_.c_str()), -1);
        EXPECT_TRUE(log.Shows({kLog.Enter("MsgCreateExclusive"),
                               kLog.Error("MsgCreateExclusive",
                                          "Can't get message queue key by file (" + path_ + ")")}));
    });
    EXPECT_EQ(QueuesInSpace(), 0);
}

TEST_F(MessageQueueFailureTest, AQueueThatCannotBeLookedAtStays) {
    AtEveryLogSetting([&](LogCapture& log) {
        ASSERT_TRUE(EnterQueueSpace(true));
        unlink(path_.c_str());
        FailCall(Call::kMsgctl, 1, EACCES);
        EXPECT_EQ(MsgCreateExclusive(path_.c_str()), -1);
        EXPECT_TRUE(log.Shows(
            {kLog.Enter("MsgCreateExclusive"), kWritten, Generated(FileKey()),
             kLog.Error("MsgCreateExclusive", "Can't get message queue data structure")}));
        EXPECT_EQ(QueuesInSpace(), 1);
        EXPECT_EQ(ReadFile(path_), "");
    });
}

TEST_F(MessageQueueFailureTest, AQueueThatCannotBeSizedStays) {
    for (const std::string& content : {std::string(), std::string("12 of an earlier start")}) {
        AtEveryLogSetting([&](LogCapture& log) {
            EnterNarrowSpace();
            WriteFile(path_, content);
            EXPECT_EQ(MsgCreateExclusive(path_.c_str()), -1);
            EXPECT_TRUE(
                log.Shows({kLog.Enter("MsgCreateExclusive"), Generated(FileKey()),
                           kLog.Error("MsgCreateExclusive", "Can't set message queue size")}));
            EXPECT_EQ(QueuesInSpace(), 1);
            EXPECT_EQ(ReadFile(path_), content);
            EXPECT_LT(StateOf(msgget(FileKey(), 0)).msg_qbytes, kQueueBytes);
        });
    }
}

TEST_F(MessageQueueFailureTest, AQueueThatCannotBeSizedIsUsedWhenTheKeyFileKnowsIt) {
    WriteFile(path_, "");
    key_t key = FileKey();

    AtEveryLogSetting([&](LogCapture& log) {
        EnterNarrowSpace();
        WriteFile(path_, std::to_string(key));
        int id = MsgQueueGet(path_.c_str());
        ASSERT_NE(id, -1);
        EXPECT_TRUE(log.Shows(
            Lines{kLog.Enter("MsgQueueGet"), kLog.Enter("MsgCreateExclusive"), Generated(key),
                  kLog.Error("MsgCreateExclusive", "Can't set message queue size"), kQueueExists} +
            KeyRead(key) +
            Lines{kLog.Verbose("MsgQueueGet",
                               "Get message queue by id (" + std::to_string(id) + ") successfully"),
                  kLog.Leave("MsgQueueGet")}));
        EXPECT_EQ(StateOf(id).msg_perm.__key, key);
        EXPECT_EQ(StateOf(id).msg_qbytes, static_cast<unsigned long>(QueueSpaceByteLimit()));
    });
}

TEST_F(MessageQueueFailureTest, AQueueThatCannotBeSizedIsNotFoundByAnEmptyKeyFile) {
    AtEveryLogSetting([&](LogCapture& log) {
        EnterNarrowSpace();
        unlink(path_.c_str());
        EXPECT_EQ(MsgQueueGet(path_.c_str()), -1);
        EXPECT_TRUE(log.Shows(
            Lines{kLog.Enter("MsgQueueGet"), kLog.Enter("MsgCreateExclusive"), kWritten,
                  Generated(FileKey()),
                  kLog.Error("MsgCreateExclusive", "Can't set message queue size"), kQueueExists} +
            EmptyReads(3) +
            Lines{kLog.Error("MsgQueueGet",
                             "Can't find the message queue's key from file (" + path_ + ")"),
                  kLog.Leave("MsgQueueGet")}));
        EXPECT_EQ(QueuesInSpace(), 1);
    });
}

TEST_F(MessageQueueFailureTest, AKeyThatCannotBeWrittenDoesNotStopTheStart) {
    AtEveryLogSetting([&](LogCapture& log) {
        ASSERT_TRUE(EnterQueueSpace(true));
        WriteFile(path_, "");
        FailCall(Call::kFopen, 1, EROFS);
        int id = MsgQueueGet(path_.c_str());
        Lines lines = Lines{kLog.Enter("MsgQueueGet")} + CreationLines(FileKey(), true);
        lines.resize(lines.size() - 2);  // neither the write nor the exit marker
        EXPECT_TRUE(log.Shows(
            lines + Lines{kLog.Error("FileWriteString", "Can't open file (" + path_ + ")"),
                          kLog.Error("MsgCreateExclusive", "Can't write to file (" + path_ + ")"),
                          kLog.Verbose("MsgQueueGet",
                                       "Create message queue by file (" + path_ + ") successfully"),
                          kLog.Leave("MsgQueueGet")}));
        EXPECT_EQ(StateOf(id).msg_qbytes, kQueueBytes);
        EXPECT_EQ(ReadFile(path_), "");
    });
}

}  // namespace
