// SPDX-License-Identifier: MIT
// Real queues, in namespaces of their own, and the lines of the log that tests of them share.
#pragma once

#include <errno.h>
#include <gtest/gtest.h>
#include <stdio.h>
#include <string.h>
#include <sys/ipc.h>
#include <sys/msg.h>

#include <string>

#include "tests/unit/support/fake_system.h"
#include "tests/unit/support/queue_space.h"
#include "tests/unit/support/unit_test.h"
#include "tests/unit/util/lines.h"

constexpr LogSource kLog = kUtilLog;
constexpr unsigned long kQueueBytes = 1576960;

class MessageQueueFixture : public UnitTest {
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

inline struct msqid_ds StateOf(int id) {
    struct msqid_ds queue = {};
    EXPECT_EQ(msgctl(id, IPC_STAT, &queue), 0) << strerror(errno);
    return queue;
}

inline const ExpectedLine kWritten = kLog.Verbose("FileWriteString", "Write to file OK");
inline const ExpectedLine kQueueExists =
    kLog.Verbose("MsgQueueGet", "Message queue exist, try to get key");

inline ExpectedLine Generated(key_t key) {
    char text[128];
    snprintf(text, sizeof(text), "Generate message queue key = %d (0x%x)", key,
             static_cast<unsigned>(key));
    return kLog.Verbose("MsgCreateExclusive", text);
}

inline ExpectedLine AlreadyExists(key_t key, int error) {
    return kLog.Verbose("MsgCreateExclusive", "Message queue (key = " + std::to_string(key) +
                                                  ") already exists (error = " + strerror(error) +
                                                  ")");
}

// A first start's lines; the key file is there or has to be made.
inline Lines CreationLines(key_t key, bool withFile) {
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

inline Lines KeyRead(key_t key) {
    return {kLog.Verbose("FileReadString", "Get text = " + std::to_string(key)),
            kLog.Verbose("GetMsgKey", "Get Key = " + std::to_string(key))};
}
