// SPDX-License-Identifier: MIT
// Texts of every kind and length, and the stream that they go to.
#include <errno.h>
#include <gtest/gtest.h>
#include <stdio.h>
#include <sys/wait.h>
#include <unistd.h>

#include <sstream>
#include <string>
#include <thread>

#include "tests/unit/support/fake_system.h"
#include "tests/unit/support/log_capture.h"
#include "tests/unit/support/unit_test.h"
#include "util/log.h"

namespace {

class LogTextTest : public UnitTest {};

void SayText(const std::string& text) {
    LogError("%s", text.c_str());
}

ExpectedLine SaidText(const std::string& text) {
    return LogSource{"statement.cpp"}.Error("SayText", text);
}

TEST_F(LogTextTest, ConversionsInsideAnArgumentAreText) {
    AtEveryLogSetting([](LogCapture& log) {
        SayText("100%n%s%d%%");
        EXPECT_TRUE(log.Shows({SaidText("100%n%s%d%%")}));
    });
}

TEST_F(LogTextTest, ALongTextIsNotCut) {
    for (size_t length : {1000U, 1022U, 1023U, 1024U, 1025U, 100000U}) {
        AtEveryLogSetting([&](LogCapture& log) {
            std::string text(length, 'x');
            SayText(text);
            EXPECT_TRUE(log.Shows({SaidText(text)}));
        });
    }
}

TEST_F(LogTextTest, WithoutMemoryALongTextIsCut) {
    std::string text(5000, 'x');
    LogCapture log(1);

    FailCall(Call::kVasprintf, 1, ENOMEM);
    SayText(text);
    EXPECT_TRUE(log.Shows({SaidText(std::string(1023, 'x'))}));
}

TEST_F(LogTextTest, AProcessWithoutANameIsShownAsTheLibraryShowsNull) {
    LogCapture log(1, LogTarget::kStdout);

    g_processName = nullptr;
    LogNotice("nobody");
    EXPECT_EQ(log.StdoutText(), "(null): nobody\n");
    log.Clear();
}

// Into a pipe or file nothing shows until the process ends: meant.
TEST_F(LogTextTest, StandardOutputIsNotFlushed) {
    std::string path = dir_ / "output";
    fflush(stdout);
    pid_t child = fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        if (freopen(path.c_str(), "w", stdout) == nullptr) {
            _exit(2);
        }
        g_logToSyslog = 0;
        g_processName = "child";
        for (int32_t level : {1, 2, 3}) {
            g_printLevel = level;
            SayText("into the pipe");
        }
        _exit(0);
    }
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);
    EXPECT_EQ(ReadFile(path), "");
}

TEST_F(LogTextTest, LinesOfTwoThreadsStayWhole) {
    constexpr int kLines = 2000;
    LogCapture log(3, LogTarget::kStdout);
    auto speak = [](char letter) {
        std::string text(100, letter);
        for (int i = 0; i < kLines; ++i) {
            LogWrite(LogKind::kVerbose, "f", 7, "Thread", "%s", text.c_str());
        }
    };

    std::thread first(speak, 'a');
    std::thread second(speak, 'b');
    first.join();
    second.join();

    std::istringstream lines(log.StdoutText());
    log.Clear();
    int numFirst = 0;
    int numSecond = 0;
    for (std::string line; std::getline(lines, line);) {
        numFirst += line == "pinTestProcess: Thread() [#]: " + std::string(100, 'a') ? 1 : 0;
        numSecond += line == "pinTestProcess: Thread() [#]: " + std::string(100, 'b') ? 1 : 0;
    }
    EXPECT_EQ(numFirst, kLines);
    EXPECT_EQ(numSecond, kLines);
}

}  // namespace
