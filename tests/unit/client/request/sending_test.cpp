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

struct ManyRow {
    size_t requests;
    const char* time;
};

TEST(ManyRequestsTest, HowLongTheyTakeIsToldOfManyAlone) {
    const ManyRow rows[] = {
        {0, ""},
        {9, ""},
        {10, "10 seconds"},
        {29, "29 seconds"},
        {30, "a minute"},
        {61, "a minute"},
        {89, "a minute"},
        {90, "2 minutes"},
        {610, "10 minutes"},
    };
    for (const ManyRow& row : rows) {
        const std::string time = row.time;
        EXPECT_EQ(DescribeManyRequests(row.requests),
                  time.empty() ? ""
                               : std::to_string(row.requests) + " requests take about " + time +
                                     " or longer: the service rests a second after each");
    }
}

TEST_F(SendingTest, HowLongManyTakeIsSaidBeforeTheyGo) {
    MakeQueue();
    for (const size_t count : {size_t{9}, size_t{61}}) {
        std::vector<Message> messages = Messages(count);
        size_t sent = 0;
        testing::internal::CaptureStderr();
        EXPECT_EQ(SendAndWait(messages, "", {}, sent), kExitNoService) << "nobody takes them";
        const std::string talk = testing::internal::GetCapturedStderr();
        EXPECT_EQ(talk.find("quorcachepinctl: 61 requests take about a minute") == 0, count == 61)
            << talk;
        EXPECT_EQ(sent, count);
    }
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

TEST_F(SendingTest, WhatHasVanishedIsTakenOut) {
    MakeQueue();
    std::vector<Message> messages = Messages(2);
    unlink((mount_ + "/f0").c_str());
    size_t sent = 0;
    testing::internal::CaptureStderr();
    EXPECT_EQ(SendAll(messages, 0, sent), kExitNoService) << "nor does anybody take the rest";
    EXPECT_NE(testing::internal::GetCapturedStderr().find("passed over " + mount_ + "/f0: it has"),
              std::string::npos);
    EXPECT_EQ(sent, 1U);
    ASSERT_EQ(messages.size(), 1U);
    EXPECT_EQ(messages[0].data, mount_ + "/f1");
}

TEST_F(SendingTest, WithoutAQueueNothingIsSent) {
    std::vector<Message> messages = Messages(1);
    size_t sent = 7;
    testing::internal::CaptureStderr();
    EXPECT_EQ(SendAll(messages, 60, sent), kExitNoService);
    EXPECT_NE(testing::internal::GetCapturedStderr().find("there is no key file"),
              std::string::npos);
    EXPECT_EQ(sent, 0U);
}

TEST_F(SendingTest, AListThatCannotBeReadKeepsItFromSendingOnlyWhatIsWaitedFor) {
    MakeQueue();
    std::vector<Message> messages = Messages(1);
    size_t sent = 7;
    SendOptions options;
    testing::internal::CaptureStderr();
    EXPECT_EQ(SendAndWait(messages, "", options, sent), kExitNoService) << "nobody takes it";
    EXPECT_EQ(sent, 1U);
    options.wait = true;
    EXPECT_EQ(SendAndWait(messages, dir_.path(), options, sent), kExitNoService);
    EXPECT_EQ(sent, 0U);
    EXPECT_NE(testing::internal::GetCapturedStderr().find("; nothing was sent"), std::string::npos);
}

TEST_F(SendingTest, AWaitEndsWhereNoServiceRuns) {
    MakeQueue();
    std::vector<Message> messages = Messages(1);
    size_t sent = 0;
    SendOptions options;
    options.wait = true;
    WriteFile(dir_ / "conf", "{}");
    testing::internal::CaptureStderr();
    EXPECT_EQ(SendAndWait(messages, dir_ / "conf", options, sent), kExitNoService);
    EXPECT_EQ(sent, 1U);
    EXPECT_NE(testing::internal::GetCapturedStderr().find("the requests wait until it is started"),
              std::string::npos);
}

TEST_F(SendingTest, WhatWasNotSentIsNotWaitedFor) {
    MakeQueue(1);
    std::vector<Message> messages = Messages(2);
    size_t sent = 0;
    SendOptions options;
    options.patience = 0;
    options.wait = true;
    WriteFile(dir_ / "conf", "{}");
    testing::internal::CaptureStderr();
    EXPECT_EQ(SendAndWait(messages, dir_ / "conf", options, sent), kExitTimedOut);
    EXPECT_EQ(testing::internal::GetCapturedStderr().find("wait until it is started"),
              std::string::npos);
}

TEST_F(SendingTest, WhatAnUnpinThatWasCutShortHasNotPinnedAgainIsTold) {
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
