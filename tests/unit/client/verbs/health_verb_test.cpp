// SPDX-License-Identifier: MIT
// What health says of a service that works, of one that does not, and when it starts one again.
#include <gtest/gtest.h>
#include <stdlib.h>
#include <sys/msg.h>
#include <sys/stat.h>

#include <filesystem>
#include <memory>

#include "client/show/exit_status.h"
#include "tests/unit/client/service/impostor.h"
#include "tests/unit/client/verbs/verbs_test.h"

namespace client {

namespace {

class HealthVerbTest : public VerbsTest {
  protected:
    void SetUp() override {
        VerbsTest::SetUp();
        path_ = getenv("PATH");
        setenv("PATH", (dir_.path() + ":" + path_).c_str(), 1);
        std::filesystem::create_symlink("/usr/bin/python3", dir_ / "quorcachepinfiled");
        std::filesystem::create_directory(dir_ / "bin");
        std::filesystem::create_symlink("/bin/sh", dir_ / "bin/quorcachepinfiled");
        MakeQueue();
    }
    void TearDown() override {
        setenv("PATH", path_.c_str(), 1);
        VerbsTest::TearDown();
    }
    // Lets the unit's main process be this one, and a restart end so.
    void Unit(pid_t pid, int exitStatus = 0) {
        WriteFile(dir_ / "systemctl", "#!/bin/sh\necho \"$@\" >>" + (dir_ / "asked") +
                                          "\ncase $1 in show) echo " + std::to_string(pid) +
                                          ";; restart) exit " + std::to_string(exitStatus) +
                                          ";; esac\n");
        chmod((dir_ / "systemctl").c_str(), 0755);
        WriteFile(dir_ / "asked", "");
    }
    bool WasRestarted() {
        return ReadFile(dir_ / "asked").find("restart quorcachepinfiled.service\n") !=
               std::string::npos;
    }
    // A service whose worker has ended.
    std::unique_ptr<Impostor> Halved() {
        return std::make_unique<Impostor>(dir_ / "bin/quorcachepinfiled",
                                          std::vector<std::string>{});
    }
    static std::string Worker(pid_t pid) {
        return "quorcachepinctl: the service (process " + std::to_string(pid) +
               ") carries out no more requests: its worker has ended";
    }

    std::string path_;
};

TEST_F(HealthVerbTest, AServiceThatWorksIsLeftAlone) {
    Unit(1);
    const BusyImpostor service(dir_ / "quorcachepinfiled", "", 0);
    const CallResult result = Run({"health", "--restart"});
    EXPECT_EQ(result.status, kExitDone);
    EXPECT_EQ(result.out, "the service takes requests and carries them out\n");
    EXPECT_EQ(result.talk, "");
    EXPECT_EQ(ReadFile(dir_ / "asked"), "");
    EXPECT_EQ(Shape(Report({"health"}, kExitDone)),
              "exitStatus:n problems:a restarted:b schema:n verb:s");
}

TEST_F(HealthVerbTest, AServiceThatDoesNotRunIsNamedAndNotStarted) {
    Unit(0);
    const CallResult result = Run({"health", "--restart"});
    EXPECT_EQ(result.status, kExitNoService);
    EXPECT_EQ(result.talk, "quorcachepinctl: the service does not run here\n");
    EXPECT_EQ(ReadFile(dir_ / "asked"), "");
}

TEST_F(HealthVerbTest, AnEndedWorkerIsSaidInOneLine) {
    const std::unique_ptr<Impostor> service = Halved();
    Unit(service->pid());
    const CallResult result = Run({"health"});
    EXPECT_EQ(result.status, kExitNoService);
    EXPECT_EQ(result.talk, Worker(service->pid()) + "\n");
    EXPECT_FALSE(WasRestarted());
    const Json::Value report = Report({"health"}, kExitNoService);
    ASSERT_EQ(report["problems"].size(), 1U);
    EXPECT_EQ("quorcachepinctl: " + report["problems"][0].asString(), Worker(service->pid()));
    EXPECT_EQ(report["error"], report["problems"][0]);
    EXPECT_EQ(report["restarted"], false);
}

TEST_F(HealthVerbTest, TheUnitIsStartedAgainWhenItIsAsked) {
    const std::unique_ptr<Impostor> service = Halved();
    Unit(service->pid());
    const CallResult result = Run({"health", "--restart"});
    EXPECT_EQ(result.status, kExitPartly);
    EXPECT_EQ(result.talk, Worker(service->pid()) + "; it is started again\n");
    EXPECT_TRUE(WasRestarted());
    EXPECT_EQ(Report({"health", "--restart"}, kExitPartly)["restarted"], true);
}

TEST_F(HealthVerbTest, ARestartThatFailsIsSaid) {
    const std::unique_ptr<Impostor> service = Halved();
    Unit(service->pid(), 1);
    const CallResult result = Run({"health", "--restart"});
    EXPECT_EQ(result.status, kExitNoService);
    EXPECT_EQ(result.talk, Worker(service->pid()) +
                               "; it is started again\n"
                               "quorcachepinctl: quorcachepinfiled.service cannot be started "
                               "again; systemctl status shows why\n");
}

TEST_F(HealthVerbTest, AServiceThatIsNoUnitIsNotStartedAgain) {
    const std::unique_ptr<Impostor> service = Halved();
    Unit(1);
    const CallResult result = Run({"health", "--restart"});
    EXPECT_EQ(result.status, kExitNoService);
    EXPECT_EQ(result.talk, Worker(service->pid()) +
                               "; it is not quorcachepinfiled.service, and is not started again\n");
    EXPECT_FALSE(WasRestarted());
}

TEST_F(HealthVerbTest, WhatIsNotAThreadsEndIsSaidAndNotMended) {
    const BusyImpostor service(dir_ / "quorcachepinfiled", "", 0);
    Unit(1);
    WriteFile(config_, "{");
    const CallResult result = Run({"health", "--restart"});
    EXPECT_EQ(result.status, kExitNoService);
    EXPECT_NE(result.talk.find(config_), std::string::npos) << result.talk;
    EXPECT_EQ(result.talk.find('\n'), result.talk.size() - 1) << "one line";
    EXPECT_FALSE(WasRestarted());
}

}  // namespace

}  // namespace client
