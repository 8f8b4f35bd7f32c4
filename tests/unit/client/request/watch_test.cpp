// SPDX-License-Identifier: MIT
// What ends a wait, at its first look or later; what a real service does meanwhile is a story's.
#include "client/request/watch.h"

#include <gtest/gtest.h>
#include <signal.h>
#include <unistd.h>

#include <filesystem>
#include <functional>
#include <thread>

#include "client/show/exit_status.h"
#include "tests/unit/client/client_test.h"
#include "tests/unit/client/service/impostor.h"
#include "tests/unit/client/signals.h"

namespace client {

namespace {

class WatchTest : public QueueClientTest {
  protected:
    // Waits for one pin request, sent when the next number was 5.
    int Wait(const std::string& configuration, unsigned timeout = 1) {
        const Message message = {kRequestPinFiles, mount_, mount_ + "/a", "a#1", 1, {}};
        WriteFile(dir_ / "conf", configuration);
        requests_ = ToWatch({message}, 1);
        testing::internal::CaptureStderr();
        const int status = WaitForRequests(requests_, {dir_ / "conf", 5, timeout});
        talk_ = testing::internal::GetCapturedStderr();
        return status;
    }
    std::string Queued(const std::string& number) const {
        return R"({"nextRequestNum":6,"requestQueue":[")" + number + R"("],"requests":{")" +
               number + R"(":{"type":"pinFiles","mountPath":")" + mount_ + R"(","data":"a#1"}}})";
    }

    // The program that looks as the service does and works.
    std::string Program() {
        const std::string program = dir_ / "quorcachepinfiled";
        std::filesystem::create_symlink("/usr/bin/python3", program);
        return program;
    }

    std::vector<Watched> requests_;
    std::string talk_;
};

TEST_F(WatchTest, NothingToWaitForIsDone) {
    std::vector<Watched> none;
    WriteFile(dir_ / "conf", "{}");
    EXPECT_EQ(WaitForRequests(none, {dir_ / "conf", 0, 1}), kExitDone);
}

TEST_F(WatchTest, WithoutAServiceARequestIsNotWaitedFor) {
    MakeQueue();
    EXPECT_EQ(Wait(Queued("5")), kExitNoService);
    EXPECT_EQ(requests_[0].state, WatchState::kQueued);
    EXPECT_NE(talk_.find("does not run here; the requests wait until it is started"),
              std::string::npos)
        << talk_;
}

TEST_F(WatchTest, OneLookAtAnEmptyQueueIsNotBelieved) {
    MakeQueue();
    EXPECT_EQ(Wait(R"({"nextRequestNum":6})"), kExitNoService);
    EXPECT_EQ(requests_[0].state, WatchState::kUnseen) << "it may be on the way into the file";
}

TEST_F(WatchTest, AFileThatCannotBeReadEndsIt) {
    EXPECT_EQ(Wait("no JSON"), kExitNoService);
    EXPECT_NE(talk_.find("is damaged"), std::string::npos) << talk_;
}

TEST_F(WatchTest, ARequestThatLeavesTheQueueIsDone) {
    MakeQueue();
    const BusyImpostor service(Program(), "", 0, {"-f", dir_ / "conf"});
    std::thread change =
        OnceSignalsAreNoted([this] { WriteFile(dir_ / "conf", R"({"nextRequestNum":6})"); });
    EXPECT_EQ(Wait(Queued("5"), 0), kExitDone) << talk_;
    change.join();
    EXPECT_EQ(requests_[0].state, WatchState::kLeft);
    EXPECT_EQ(talk_, "");
}

TEST_F(WatchTest, ARequestThatWasNeverSeenHasLeftOnceItsNumberWasGiven) {
    MakeQueue();
    const BusyImpostor service(Program(), "", 0, {"-f", dir_ / "conf"});
    EXPECT_EQ(Wait(R"({"nextRequestNum":6})", 0), kExitDone) << talk_;
    EXPECT_EQ(requests_[0].state, WatchState::kLeft);
}

TEST_F(WatchTest, AWaitEndsInTimeAndLeavesTheRequestQueued) {
    MakeQueue();
    const BusyImpostor service(Program(), device_, 0, {"-f", dir_ / "conf"});
    EXPECT_EQ(Wait(Queued("5")), kExitTimedOut);
    EXPECT_EQ(requests_[0].state, WatchState::kQueued);
    EXPECT_NE(talk_.find("the time is over; the requests stay queued, status shows them\n"),
              std::string::npos)
        << talk_;
}

TEST_F(WatchTest, ASignalEndsAWaitWithItsOwnStatus) {
    MakeQueue();
    const BusyImpostor service(Program(), "", 0, {"-f", dir_ / "conf"});
    for (const int number : {SIGTERM, SIGINT, SIGHUP}) {
        std::thread sender = OnceSignalsAreNoted([number] { kill(getpid(), number); });
        EXPECT_EQ(Wait(Queued("5"), 0), 128 + number);
        sender.join();
        EXPECT_NE(talk_.find("interrupted; the requests stay queued"), std::string::npos) << talk_;
    }
}

TEST_F(WatchTest, AServiceWithoutAWorkerIsNotWaitedFor) {
    MakeQueue();
    std::filesystem::create_symlink("/bin/sh", dir_ / "quorcachepinfiled");
    const Impostor service(dir_ / "quorcachepinfiled", {"-f", dir_ / "conf"});
    EXPECT_EQ(Wait(Queued("5"), 0), kExitNoService);
    EXPECT_NE(talk_.find("carries out no more requests: its worker has ended"), std::string::npos)
        << talk_;
}

TEST_F(WatchTest, AnothersFileShowsNothingOfTheRequests) {
    MakeQueue();
    const BusyImpostor service(Program(), "", 0, {"-f", dir_ / "other"});
    EXPECT_EQ(Wait(Queued("5"), 0), kExitNoService);
    EXPECT_EQ(requests_[0].state, WatchState::kUnseen) << "it was not even looked at";
    EXPECT_NE(talk_.find("is not the configuration file of the service that runs, so it will not "
                         "show what becomes of the requests\n"),
              std::string::npos)
        << talk_;
}

}  // namespace

}  // namespace client
