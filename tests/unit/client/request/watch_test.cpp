// SPDX-License-Identifier: MIT
// What ends a wait at its first look; a wait that lasts is a story's.
#include "client/request/watch.h"

#include <gtest/gtest.h>

#include "client/show/exit_status.h"
#include "tests/unit/client/client_test.h"

namespace client {

namespace {

class WatchTest : public QueueClientTest {
  protected:
    // Waits for one pin request, sent when the next number was 5.
    int Wait(const std::string& configuration) {
        const Message message = {kRequestPinFiles, mount_, mount_ + "/a", "a#1", 1, {}};
        WriteFile(dir_ / "conf", configuration);
        requests_ = ToWatch({message}, 1);
        testing::internal::CaptureStderr();
        const int status = WaitForRequests(requests_, {dir_ / "conf", 5, 1});
        talk_ = testing::internal::GetCapturedStderr();
        return status;
    }
    std::string Queued(const std::string& number) const {
        return R"({"nextRequestNum":6,"requestQueue":[")" + number + R"("],"requests":{")" +
               number + R"(":{"type":"pinFiles","mountPath":")" + mount_ + R"(","data":"a#1"}}})";
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

}  // namespace

}  // namespace client
