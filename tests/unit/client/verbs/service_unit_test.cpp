// SPDX-License-Identifier: MIT
// Stopping and starting the service's unit, with another program in systemctl's place.
#include "client/verbs/service_unit.h"

#include <gtest/gtest.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include "tests/unit/support/unit_test.h"

namespace client {

namespace {

class ServiceUnitTest : public UnitTest {
  protected:
    void SetUp() override {
        UnitTest::SetUp();
        before_ = getenv("PATH");
        setenv("PATH", (dir_.path() + ":" + before_).c_str(), 1);
    }
    void TearDown() override {
        setenv("PATH", before_.c_str(), 1);
        UnitTest::TearDown();
    }
    // Puts a program in systemctl's place; it notes its arguments.
    void Answer(const std::string& script) {
        const std::string path = dir_ / "systemctl";
        WriteFile(path, "#!/bin/sh\necho \"$@\" >>" + (dir_ / "calls") + "\n" + script + "\n");
        chmod(path.c_str(), 0755);
    }

    std::string before_;
};

TEST_F(ServiceUnitTest, TheUnitIsNamedInEveryCall) {
    Answer("echo 0");
    EXPECT_EQ(UnitMainProcess(), 0);
    EXPECT_TRUE(StopUnit());
    EXPECT_TRUE(StartUnit());
    EXPECT_TRUE(RestartUnit());
    EXPECT_EQ(ReadFile(dir_ / "calls"),
              "show --property MainPID --value quorcachepinfiled.service\n"
              "stop quorcachepinfiled.service\n"
              "start quorcachepinfiled.service\n"
              "restart quorcachepinfiled.service\n");
}

TEST_F(ServiceUnitTest, TheMainProcessIsWhatIsAnswered) {
    const std::pair<const char*, pid_t> rows[] = {
        {"echo 4711", 4711}, {"echo 0", 0},          {"echo", 0},       {":", 0},
        {"echo none", 0},    {"echo 12; exit 1", 0}, {"kill -9 $$", 0},
    };
    for (const auto& [script, pid] : rows) {
        Answer(script);
        EXPECT_EQ(UnitMainProcess(), pid) << script;
    }
}

TEST_F(ServiceUnitTest, AFailureIsAFailure) {
    Answer("exit 1");
    EXPECT_FALSE(StopUnit());
    EXPECT_FALSE(StartUnit());
    EXPECT_FALSE(RestartUnit());
    setenv("PATH", (dir_ / "nowhere").c_str(), 1);
    EXPECT_FALSE(StopUnit()) << "no systemctl";
    EXPECT_EQ(UnitMainProcess(), 0);
}

TEST_F(ServiceUnitTest, ASignalWaitsForTheEndOfTheScope) {
    for (const int number : {SIGHUP, SIGINT, SIGQUIT, SIGTERM, SIGPIPE}) {
        const std::string mark = dir_ / ("done-" + std::to_string(number));
        const pid_t child = fork();
        if (child == 0) {
            {
                const SignalsPutOff putOff;
                raise(number);
                WriteFile(mark, "");
            }
            _exit(0);
        }
        int status = 0;
        ASSERT_EQ(waitpid(child, &status, 0), child);
        EXPECT_TRUE(Exists(mark)) << number;
        EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == number) << number;
    }
}

TEST_F(ServiceUnitTest, ASignalDoesNotReachSystemctlEither) {
    Answer("kill -INT $$; kill -TERM $$; exit 0");
    EXPECT_FALSE(StartUnit());
    const SignalsPutOff putOff;
    EXPECT_TRUE(StartUnit());
}

}  // namespace

}  // namespace client
