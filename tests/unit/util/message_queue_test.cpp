// SPDX-License-Identifier: MIT
// Real queues, in namespaces of their own.
#include "util/message_queue.h"

#include <errno.h>
#include <gtest/gtest.h>
#include <stdio.h>
#include <string.h>
#include <sys/ipc.h>
#include <sys/msg.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "tests/unit/support/fake_files.h"
#include "tests/unit/support/fake_system.h"
#include "tests/unit/support/log_capture.h"
#include "tests/unit/support/queue_space.h"
#include "tests/unit/support/unit_test.h"
#include "tests/unit/util/lines.h"
#include "util/request.h"

namespace {

constexpr LogSource kLog = kUtilLog;
constexpr unsigned long kQueueBytes = 1576960;

class MessageQueueTest : public UnitTest {
  protected:
    void SetUp() override {
        UnitTest::SetUp();
        path_ = dir_ / "server.key";
        if (!EnterQueueSpace(true)) {
            GTEST_SKIP() << "needs root for an IPC namespace of its own: " << strerror(errno);
        }
    }

    // A new namespace whose queues cannot be sized, one way or the other.
    static void EnterNarrowSpace() {
        ASSERT_TRUE(EnterQueueSpace(false));
        if (MaySizeAnyQueue()) {
            FailCall(Call::kMsgctl, 2, EPERM);
        }
    }

    key_t FileKey() const { return ftok(path_.c_str(), 120); }

    // The log of a key file that holds no line, read `times` times.
    Lines EmptyReads(int times) const {
        Lines lines;
        for (int i = 0; i < times; ++i) {
            lines.push_back(
                kLog.Error("FileReadString", "Can't get a line from file (" + path_ + ")"));
            lines.push_back(
                kLog.Error("GetMsgKey", "Can't get message key from file (" + path_ + ")"));
        }
        return lines;
    }

    std::string path_;
};

struct msqid_ds StateOf(int id) {
    struct msqid_ds queue = {};
    EXPECT_EQ(msgctl(id, IPC_STAT, &queue), 0) << strerror(errno);
    return queue;
}

const ExpectedLine kWritten = kLog.Verbose("FileWriteString", "Write to file OK");
const ExpectedLine kQueueExists =
    kLog.Verbose("MsgQueueGet", "Message queue exist, try to get key");

ExpectedLine Generated(key_t key) {
    char text[128];
    snprintf(text, sizeof(text), "Generate message queue key = %d (0x%x)", key,
             static_cast<unsigned>(key));
    return kLog.Verbose("MsgCreateExclusive", text);
}

ExpectedLine AlreadyExists(key_t key, int error) {
    return kLog.Verbose("MsgCreateExclusive", "Message queue (key = " + std::to_string(key) +
                                                  ") already exists (error = " + strerror(error) +
                                                  ")");
}

// A first start's lines; the key file is there or has to be made.
Lines CreationLines(key_t key, bool withFile) {
    Lines lines = {kLog.Enter("MsgCreateExclusive")};
    if (!withFile) {
        lines.push_back(kWritten);
    }
    return lines +
           Lines{Generated(key),
                 kLog.Verbose("MsgCreateExclusive",
                              "Set size = 1576960 (num of request = 1024, request size = 1540)"),
                 kWritten, kLog.Leave("MsgCreateExclusive")};
}

Lines KeyRead(key_t key) {
    return {kLog.Verbose("FileReadString", "Get text = " + std::to_string(key)),
            kLog.Verbose("GetMsgKey", "Get Key = " + std::to_string(key))};
}

TEST_F(MessageQueueTest, TheFixedParts) {
    EXPECT_STREQ(kMsgServerKeyPath, "/var/run/quorcachepinfile-msg-server.key");
    EXPECT_EQ(kMsgQueueNumRequests, 1024);
}

TEST_F(MessageQueueTest, TheFirstStartMakesTheFileAndTheQueue) {
    AtEveryLogSetting([&](LogCapture& log) {
        ASSERT_TRUE(EnterQueueSpace(true));
        unlink(path_.c_str());

        int id = MsgCreateExclusive(path_.c_str());
        ASSERT_NE(id, -1);
        key_t key = FileKey();
        EXPECT_TRUE(log.Shows(CreationLines(key, false)));
        EXPECT_EQ(ReadFile(path_), std::to_string(key)) << "no newline, nothing else";
        struct msqid_ds queue = StateOf(id);
        EXPECT_EQ(queue.msg_qbytes, kQueueBytes);
        EXPECT_EQ(queue.msg_perm.mode & 0777, 0644);
        EXPECT_EQ(queue.msg_perm.__key, key);
        EXPECT_EQ(QueuesInSpace(), 1);
    });
}

TEST_F(MessageQueueTest, TheQueueTakes1024Requests) {
    RequestMsg msg = {};
    int sent = 0;
    int id = MsgQueueGet(path_.c_str());
    ASSERT_NE(id, -1);

    msg.mtype = kRequestMsgType;
    while (msgsnd(id, &msg, sizeof(msg.body), IPC_NOWAIT) == 0) {
        ++sent;
    }
    EXPECT_EQ(errno, EAGAIN);
    EXPECT_EQ(sent, 1024);
}

TEST_F(MessageQueueTest, AnEmptyKeyFileIsTakenAsItIs) {
    AtEveryLogSetting([&](LogCapture& log) {
        ASSERT_TRUE(EnterQueueSpace(true));
        WriteFile(path_, "");
        EXPECT_NE(MsgCreateExclusive(path_.c_str()), -1);
        EXPECT_TRUE(log.Shows(CreationLines(FileKey(), true)));
        EXPECT_EQ(ReadFile(path_), std::to_string(FileKey()));
    });
}

TEST_F(MessageQueueTest, AStaleKeyFileIsRewritten) {
    for (const char* content : {"123456789 and more", "garbage", "7\n"}) {
        ASSERT_TRUE(EnterQueueSpace(true));
        WriteFile(path_, content);
        int id = MsgQueueGet(path_.c_str());
        EXPECT_EQ(StateOf(id).msg_qbytes, kQueueBytes);
        EXPECT_EQ(ReadFile(path_), std::to_string(FileKey()));
        EXPECT_EQ(QueuesInSpace(), 1);
    }
}

TEST_F(MessageQueueTest, GettingTheQueueOfAFirstStart) {
    AtEveryLogSetting([&](LogCapture& log) {
        ASSERT_TRUE(EnterQueueSpace(true));
        unlink(path_.c_str());
        EXPECT_NE(MsgQueueGet(path_.c_str()), -1);
        EXPECT_TRUE(log.Shows(Lines{kLog.Enter("MsgQueueGet")} + CreationLines(FileKey(), false) +
                              Lines{kLog.Verbose("MsgQueueGet", "Create message queue by file (" +
                                                                    path_ + ") successfully"),
                                    kLog.Leave("MsgQueueGet")}));
    });
}

TEST_F(MessageQueueTest, ARestartOpensTheQueueWithWhatWaitsInIt) {
    RequestMsg msg = {};
    int id = MsgQueueGet(path_.c_str());
    ASSERT_NE(id, -1);
    msg.mtype = kRequestMsgType;
    msg.body.type = kRequestReloadPinBlocks;
    ASSERT_EQ(msgsnd(id, &msg, sizeof(msg.body), IPC_NOWAIT), 0);
    // A size that somebody gave it stays: only the start that creates a queue sizes it.
    struct msqid_ds queue = StateOf(id);
    queue.msg_qbytes = 20000;
    ASSERT_EQ(msgctl(id, IPC_SET, &queue), 0);

    AtEveryLogSetting([&](LogCapture& log) {
        EXPECT_EQ(MsgQueueGet(path_.c_str()), id);
        EXPECT_TRUE(
            log.Shows(Lines{kLog.Enter("MsgQueueGet"), kLog.Enter("MsgCreateExclusive"),
                            Generated(FileKey()), AlreadyExists(FileKey(), EEXIST), kQueueExists} +
                      KeyRead(FileKey()) +
                      Lines{kLog.Verbose("MsgQueueGet", "Get message queue by id (" +
                                                            std::to_string(id) + ") successfully"),
                            kLog.Leave("MsgQueueGet")}));
    });
    EXPECT_EQ(StateOf(id).msg_qbytes, 20000U);
    EXPECT_EQ(StateOf(id).msg_qnum, 1U);
    EXPECT_EQ(ReadFile(path_), std::to_string(FileKey()));
}

TEST_F(MessageQueueTest, ANegativeKeyKeepsItsSign) {
    for (key_t key : {-1234567, INT32_MIN, -2}) {
        ASSERT_TRUE(EnterQueueSpace(true));
        unlink(path_.c_str());
        SetFileKey(path_, key);
        LogCapture log(2);

        int id = MsgCreateExclusive(path_.c_str());
        EXPECT_TRUE(log.Shows(CreationLines(key, false)));
        EXPECT_EQ(ReadFile(path_), std::to_string(key));
        EXPECT_EQ(MsgQueueGet(path_.c_str()), id);
    }
}

TEST_F(MessageQueueTest, AnEmptyKeyFileOfAnExistingQueueIsReadThreeTimes) {
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

TEST_F(MessageQueueTest, AKeyThatComesLateIsStillFound) {
    int id = MsgQueueGet(path_.c_str());
    ASSERT_NE(id, -1);
    std::string content = ReadFile(path_);
    WriteFile(path_, "");
    OnCall(Call::kFopen, [&, before = CallCount(Call::kFopen)](int count) {
        if (count == before + 3) {
            WriteFile(path_, content);
        }
    });
    LogCapture log(1);

    EXPECT_EQ(MsgQueueGet(path_.c_str()), id);
    EXPECT_TRUE(log.Shows(EmptyReads(2)));
}

TEST_F(MessageQueueTest, AKeyWithoutAQueueIsTriedOnce) {
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

// Whatever the cause, the first failure is but a trace: meant.
TEST_F(MessageQueueTest, ExclusiveCreationThatFailsForAnotherReasonLeadsToTheKeyFileToo) {
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

TEST_F(MessageQueueTest, AKeyFileThatCannotBeMade) {
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

TEST_F(MessageQueueTest, AFileWithoutAKey) {
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

// In both of the cases that follow the queue stays created and the key file as it was: meant.
TEST_F(MessageQueueTest, AQueueThatCannotBeLookedAtStays) {
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

TEST_F(MessageQueueTest, AQueueThatCannotBeSizedStays) {
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

TEST_F(MessageQueueTest, AQueueThatCannotBeSizedIsUsedWhenTheKeyFileKnowsIt) {
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

TEST_F(MessageQueueTest, AQueueThatCannotBeSizedIsNotFoundByAnEmptyKeyFile) {
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

// Reported and otherwise ignored: meant.
TEST_F(MessageQueueTest, AKeyThatCannotBeWrittenDoesNotStopTheStart) {
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
