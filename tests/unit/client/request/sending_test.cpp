// SPDX-License-Identifier: MIT
// Sending that ends in the middle.
#include "client/request/sending.h"

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/msg.h>
#include <sys/wait.h>
#include <unistd.h>

#include "client/command_line.h"
#include "client/show/exit_status.h"
#include "tests/unit/client/client_test.h"
#include "tests/unit/support/fake_platform.h"

namespace client {

namespace {

class SendingTest : public QueueClientTest {
  protected:
    // Messages for files of the volume, one each.
    std::vector<Message> Messages(size_t count) {
        std::vector<Message> messages;
        for (size_t i = 0; i < count; ++i) {
            const std::string name = "f" + std::to_string(i);
            messages.push_back({kRequestUnpinFiles, mount_, Make(name), name + "#1", 1, {}});
        }
        return messages;
    }
};

TEST_F(SendingTest, AFullQueueEndsItWhenPatienceIsOver) {
    MakeQueue(1);
    std::vector<Message> messages = Messages(2);
    size_t sent = 0;
    testing::internal::CaptureStderr();
    EXPECT_EQ(SendAll(messages, 0, sent), kExitTimedOut);
    EXPECT_NE(testing::internal::GetCapturedStderr().find(
                  "the queue stayed full for 0 seconds; the service does not take requests; 1 of 2 "
                  "requests sent"),
              std::string::npos);
    EXPECT_EQ(sent, 1U);
}

TEST_F(SendingTest, ASignalEndsItBetweenTwoMessages) {
    for (const int number : {SIGINT, SIGTERM, SIGHUP}) {
        const int queue = MakeQueue(1);
        std::vector<Message> messages = Messages(2);
        size_t sent = 0;
        const pid_t child = fork();
        if (child == 0) {
            usleep(300 * 1000);
            kill(getppid(), number);
            _exit(0);
        }
        testing::internal::CaptureStderr();
        EXPECT_EQ(SendAll(messages, 60, sent), 128 + number);
        EXPECT_NE(testing::internal::GetCapturedStderr().find("interrupted; 1 of 2 requests sent"),
                  std::string::npos);
        EXPECT_EQ(sent, 1U);
        EXPECT_EQ(waitpid(child, nullptr, 0), child);
        EXPECT_EQ(msgctl(queue, IPC_RMID, nullptr), 0);
    }
}

TEST_F(SendingTest, WhatAnUnpinThatWasCutShortHasNotMendedIsTold) {
    const std::string a = Make("a");
    const std::string b = Make("b");
    const std::string config = dir_ / "conf";
    g_platform.mappings[InodeOf(a)] = {{{{0, 8, 0, 0}}}};
    g_platform.mappings[InodeOf(b)] = {{{{0, 8, 8, 0}}}};  // in the same unit
    WriteFile(config, R"({"volumes":{")" + mount_ + R"(":{"files":{")" +
                          std::to_string(InodeOf(a)) + R"(":"a",")" + std::to_string(InodeOf(b)) +
                          R"(":"b"}}}})");
    MakeQueue(1);
    std::vector<std::string> arguments = {
        "quorcachepinctl", "unpin", "--send-timeout", "0", "--config-path", config, a};
    std::vector<char*> pointers;
    for (std::string& argument : arguments) {
        pointers.push_back(argument.data());
    }
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
    EXPECT_EQ(RunCommandLine(static_cast<int>(pointers.size()), pointers.data()), kExitTimedOut);
    const std::string talk = testing::internal::GetCapturedStderr();
    testing::internal::GetCapturedStdout();
    EXPECT_NE(talk.find("1 of 2 requests sent"), std::string::npos) << talk;
    EXPECT_NE(talk.find("not all pinned again; run check --repair"), std::string::npos) << talk;
}

}  // namespace

}  // namespace client
