// SPDX-License-Identifier: MIT
// The number that the key file holds.
#include <errno.h>
#include <gtest/gtest.h>

#include <stdexcept>
#include <string>

#include "tests/unit/support/fake_system.h"
#include "tests/unit/support/log_capture.h"
#include "tests/unit/support/unit_test.h"
#include "util/message_queue.h"

namespace {

constexpr int kUntouched = 99;

class MessageKeyTest : public UnitTest {
  protected:
    void SetUp() override {
        UnitTest::SetUp();
        path_ = dir_ / "server.key";
    }

    std::string path_;
};

using MessageKeyDeathTest = MessageKeyTest;

struct KeyRow {
    const char* why;
    const char* content;
    const char* line;
    int key;
};

TEST_F(MessageKeyTest, TheKeyIsTheLeadingDecimalNumber) {
    const KeyRow rows[] = {
        {"as it is written", "2013331458", "2013331458", 2013331458},
        {"a newline behind", "123\n", "123\n", 123},
        {"negative", "-1234567", "-1234567", -1234567},
        {"zero", "0", "0", 0},
        {"blanks before", " \t42", " \t42", 42},
        {"a plus sign", "+7", "+7", 7},
        {"what follows does not count", "12abc", "12abc", 12},
        {"no hexadecimal", "0x10", "0x10", 0},
        {"no octal", "010", "010", 10},
        {"only the first line", "5\n6\n", "5\n", 5},
        {"the largest", "2147483647", "2147483647", 2147483647},
        {"the smallest", "-2147483648", "-2147483648", INT32_MIN},
    };

    for (const KeyRow& row : rows) {
        SCOPED_TRACE(row.why);
        WriteFile(path_, row.content);
        AtEveryLogSetting([&](LogCapture& log) {
            int key = kUntouched;
            EXPECT_EQ(GetMsgKey(&key, path_.c_str()), 0);
            EXPECT_EQ(key, row.key);
            EXPECT_TRUE(log.Shows(
                {kUtilLog.Verbose("FileReadString", std::string("Get text = ") + row.line),
                 kUtilLog.Verbose("GetMsgKey", "Get Key = " + std::to_string(row.key))}));
        });
    }
}

TEST_F(MessageKeyTest, AnEmptyFileHoldsNoKeyAndIsNotFatal) {
    WriteFile(path_, "");
    AtEveryLogSetting([&](LogCapture& log) {
        int key = kUntouched;
        EXPECT_EQ(GetMsgKey(&key, path_.c_str()), -1);
        EXPECT_EQ(key, kUntouched);
        EXPECT_TRUE(log.Shows(
            {kUtilLog.Error("FileReadString", "Can't get a line from file (" + path_ + ")"),
             kUtilLog.Error("GetMsgKey", "Can't get message key from file (" + path_ + ")")}));
    });
}

TEST_F(MessageKeyTest, AMissingFileHoldsNoKey) {
    AtEveryLogSetting([&](LogCapture& log) {
        int key = kUntouched;
        EXPECT_EQ(GetMsgKey(&key, path_.c_str()), -1);
        EXPECT_EQ(key, kUntouched);
        EXPECT_TRUE(log.Shows(
            {kUtilLog.Error("FileReadString", "Can't open file (" + path_ + ")"),
             kUtilLog.Error("GetMsgKey", "Can't get message key from file (" + path_ + ")")}));
    });
}

// A corrupt key file ends the process: meant. Nobody is to catch the exception or to go on without.
TEST_F(MessageKeyDeathTest, ALineThatIsNoNumberIsFatal) {
    for (const char* content : {"abc", "\n", " ", "-", "+", "x12", "\xff\xfe", "\nabc\n12"}) {
        WriteFile(path_, content);
        int key = kUntouched;
        EXPECT_THROW(GetMsgKey(&key, path_.c_str()), std::invalid_argument) << content;
        EXPECT_EQ(key, kUntouched);
    }
    WriteFile(path_, "abc");
    EXPECT_DEATH(
        [&]() noexcept {
            int key = 0;
            GetMsgKey(&key, path_.c_str());
        }(),
        "std::invalid_argument");
}

TEST_F(MessageKeyDeathTest, ANumberOutOfRangeIsFatal) {
    for (const char* content : {"2147483648", "-2147483649", "99999999999999999999"}) {
        WriteFile(path_, content);
        int key = kUntouched;
        EXPECT_THROW(GetMsgKey(&key, path_.c_str()), std::out_of_range) << content;
        EXPECT_EQ(key, kUntouched);
    }
    WriteFile(path_, "2147483648");
    EXPECT_DEATH(
        [&]() noexcept {
            int key = 0;
            GetMsgKey(&key, path_.c_str());
        }(),
        "std::out_of_range");
}

// The queue of the key file exists, so that the start gets as far as reading the key.
TEST_F(MessageKeyDeathTest, AStartOnACorruptKeyFileEndsTheProcess) {
    WriteFile(path_, "abc");
    EXPECT_DEATH(
        [&]() noexcept {
            FailCall(Call::kMsgget, 1, EEXIST);
            MsgQueueGet(path_.c_str());
        }(),
        "std::invalid_argument");
}

}  // namespace
