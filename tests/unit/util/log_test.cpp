// SPDX-License-Identifier: MIT
#include "util/log.h"

#include <gtest/gtest.h>
#include <stdio.h>
#include <time.h>

#include <string>
#include <vector>

#include "tests/unit/support/fake_system.h"
#include "tests/unit/support/log_capture.h"
#include "tests/unit/support/unit_test.h"

namespace {

// As they are when the program starts, before any test.
const int32_t kFirstPrintLevel = g_printLevel;
const int32_t kFirstLogToSyslog = g_logToSyslog;
const char* const kFirstProcessName = g_processName;
const int32_t kFirstDebugFlags = g_debugFlags;

class LogTest : public UnitTest {};

// Every statement form, each on a line of its own. This program's lines name statement.cpp, and
// those of its files begin at LOG_BASE.
constexpr int kFirstStatement = LOG_BASE + __LINE__ + 2;
void Speak() {
    LogError("an error, %d", 1);
    LogNotice("a notice, %s", "two");
    LogVerbose("a trace, %zu", sizeof(char));
    LogDebug("detail, %llu", 1ULL << 40);
    LogEnter();
    LogLeave();
}

std::string Number(int statement) {
    return std::to_string(kFirstStatement + statement);
}

std::string Joined(const std::vector<std::string>& lines) {
    std::string text;
    for (const std::string& line : lines) {
        text += line + "\n";
    }
    return text;
}

// What Speak leaves in the system log, written out.
std::string SpokenToSystemLog(int32_t level) {
    std::vector<std::string> lines;
    auto add = [&](int statement, const char* separator, const char* text) {
        std::string number = Number(statement);
        lines.push_back("<3>statement.cpp:" + number + " Speak() [" + number + "]" + separator +
                        text);
    };

    if (level == 1) {
        return Joined({"<3>statement.cpp:" + Number(0) + " an error, 1",
                       "<3>statement.cpp:" + Number(1) + " a notice, two"});
    }
    add(0, " : ***** ", "an error, 1");
    add(1, " : ", "a notice, two");
    if (level > 1) {
        add(2, " : ", "a trace, 1");
    }
    if (level > 2) {
        add(3, " : ", "detail, 1099511627776");
    }
    if (level > 1) {
        add(4, " : ", "+++++");
        add(5, " : ", "-----");
    }
    return Joined(lines);
}

std::string SpokenToStdout(int32_t level) {
    std::vector<std::string> lines;
    auto add = [&](int statement, const char* separator, const char* text) {
        lines.push_back("pinTestProcess: Speak() [" + Number(statement) + "]" + separator + text);
    };

    if (level == 1) {
        return Joined({"pinTestProcess: an error, 1", "pinTestProcess: a notice, two"});
    }
    add(0, " : ***** ", "an error, 1");
    add(1, " : ", "a notice, two");
    if (level > 1) {
        add(2, ": ", "a trace, 1");  // no blank before the colon
    }
    if (level > 2) {
        add(3, ": ", "detail, 1099511627776");
    }
    if (level > 1) {
        add(4, " : ", "+++++");  // markers are traces in the shape of a notice
        add(5, " : ", "-----");
    }
    return Joined(lines);
}

TEST_F(LogTest, SettingsAtTheStartOfTheProgram) {
    EXPECT_EQ(kFirstPrintLevel, 1);
    EXPECT_EQ(kFirstLogToSyslog, 1);
    EXPECT_EQ(kFirstProcessName, nullptr);
    EXPECT_EQ(kFirstDebugFlags, 0);
}

// The plain shape is for level 1 and no other, so a level below 1 is wordier than level 1: meant.
TEST_F(LogTest, EveryStatementInEveryShapeOnBothTargets) {
    for (int32_t level : {-1, 0, 1, 2, 3, 4}) {
        SCOPED_TRACE(level);
        {
            LogCapture log(level, LogTarget::kSyslog);
            log.KeepLineNumbers();
            Speak();
            EXPECT_EQ(Joined(log.SystemLines()), SpokenToSystemLog(level));
        }
        LogCapture log(level, LogTarget::kStdout);
        log.KeepLineNumbers();
        Speak();
        EXPECT_EQ(log.StdoutText(), SpokenToStdout(level));
        EXPECT_EQ(Joined(log.SystemLines()), "");
        log.Clear();
    }
}

// The other tests lean on the expected lines of the support library: they say the same.
TEST_F(LogTest, TheExpectedLinesAgree) {
    const LogSource source{"statement.cpp"};

    AtEveryLogSetting([&](LogCapture& log) {
        Speak();
        EXPECT_TRUE(log.Shows(
            {source.Error("Speak", "an error, 1"), source.Notice("Speak", "a notice, two"),
             source.Verbose("Speak", "a trace, 1"), source.Debug("Speak", "detail, 1099511627776"),
             source.Enter("Speak"), source.Leave("Speak")}));
    });
}

TEST_F(LogTest, ALineIsOneCallAndNobodyFlushesIt) {
    AtEveryLogSetting([](LogCapture& log) {
        int flushes = CallCount(Call::kFflush);
        LogError("an error");
        LogNotice("a notice");
        LogVerbose("a trace");
        LogDebug("more");
        LogEnter();
        EXPECT_EQ(CallCount(Call::kFflush), flushes);
        log.Clear();
    });
}

TEST_F(LogTest, HiddenStatementsLeaveTheirArgumentsAlone) {
    int evaluated = 0;

    for (int32_t level : {0, 1}) {
        LogCapture log(level);
        LogVerbose("%d", ++evaluated);
        LogDebug("%d", ++evaluated);
        EXPECT_EQ(evaluated, 0);
    }
    LogCapture log(2);
    LogDebug("%d", ++evaluated);
    EXPECT_EQ(evaluated, 0);
    LogVerbose("%d", ++evaluated);
    EXPECT_EQ(evaluated, 1);
    log.Clear();
}

void SayWithNewline() {
    LogError("can't do it\n");
}

TEST_F(LogTest, ATextsOwnNewlineIsDoubledOnStandardOutputAndKeptInTheSystemLog) {
    for (int32_t level : {1, 2}) {
        {
            LogCapture log(level, LogTarget::kStdout);
            SayWithNewline();
            EXPECT_EQ(log.StdoutText(),
                      level == 1 ? "pinTestProcess: can't do it\n\n"
                                 : "pinTestProcess: SayWithNewline() [#] : ***** can't do it\n\n");
            log.Clear();
        }
        LogCapture log(level, LogTarget::kSyslog);
        SayWithNewline();
        EXPECT_EQ(Joined(log.SystemLines()),
                  level == 1 ? "<3>statement.cpp:# can't do it\n\n"
                             : "<3>statement.cpp:# SayWithNewline() [#] : ***** can't do it\n\n");
    }
}

TEST_F(LogTest, EveryArgumentFormatInUse) {
    LogCapture log(1);
    char expected[256];
    const void* address = &log;

    LogNotice("%zu %zd %llu %lu %p %s %d %x", sizeof(int), static_cast<ssize_t>(-1), ~0ULL, 5UL,
              address, "text", -3, 0xabcU);
    snprintf(expected, sizeof(expected),
             "<3>statement.cpp:# 4 -1 18446744073709551615 5 %p text -3 abc", address);
    EXPECT_EQ(log.SystemLines(), std::vector<std::string>{expected});
}

TEST_F(LogTest, TheTimeStampNamesSecondsMillisecondsAndMicroseconds) {
    long seconds = 0;
    long milliseconds = 0;
    long microseconds = 0;
    char again[512];

    time_t before = time(nullptr);
    const char* text = TimeStampString();
    time_t after = time(nullptr);
    ASSERT_EQ(sscanf(text, "sec=%ld msec=%ld usec=%ld", &seconds, &milliseconds, &microseconds), 3);
    EXPECT_LE(before, seconds);
    EXPECT_LE(seconds, after);
    EXPECT_EQ(milliseconds, microseconds / 1000);
    EXPECT_LT(microseconds, 1000000);
    snprintf(again, sizeof(again), "sec=%ld msec=%ld usec=%ld", seconds, milliseconds,
             microseconds);
    EXPECT_STREQ(text, again);
    EXPECT_EQ(TimeStampString(), text) << "one static buffer";
}

}  // namespace
