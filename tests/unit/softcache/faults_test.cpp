// SPDX-License-Identifier: MIT
#include "softcache/serve/faults.h"

#include <errno.h>
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <thread>
#include <vector>

namespace softcache {
namespace {

TEST(Faults, TheNthControlRequestFromNowIsRefused) {
    Faults faults;
    EXPECT_FALSE(faults.TakeControl());
    faults.RefuseControl(1);
    faults.RefuseControl(3);
    std::vector<bool> refused;
    for (int request = 0; request < 5; ++request) {
        refused.push_back(faults.TakeControl());
    }
    EXPECT_EQ(refused, (std::vector<bool>{true, false, true, false, false}));
}

TEST(Faults, ReadsThatTouchAFailingRangeFail) {
    Faults faults;
    faults.FailRead(1000, 24);
    faults.FailRead(UINT64_MAX - 9, 10);
    const struct {
        uint64_t offset;
        size_t size;
        int result;
    } rows[] = {
        {0, 1000, 0},          {0, 1001, -EIO},         {999, 1, 0},
        {1000, 1, -EIO},       {1023, 1, -EIO},         {1024, 4096, 0},
        {1010, 4, -EIO},       {900, 1000, -EIO},       {1010, 0, -EIO},
        {UINT64_MAX, 1, -EIO}, {UINT64_MAX - 10, 1, 0},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(faults.BeforeRead(row.offset, row.size), row.result)
            << row.offset << "+" << row.size;
    }
    faults.Clear();
    EXPECT_EQ(faults.BeforeRead(1000, 1), 0);
}

constexpr uint32_t kHour = 3600 * 1000;  // milliseconds

// A read that is asked to wait for an hour.
class WaitingRead {
  public:
    explicit WaitingRead(Faults& faults, bool backing = false) {
        if (backing) {
            faults.DelayBacking(kHour);
        } else {
            faults.DelayReads(kHour);
        }
        thread_ = std::thread([this, &faults, backing] {
            if (backing) {
                faults.BeforeBackingRead();
            } else {
                faults.BeforeRead(0, 1);
            }
            done_ = true;
        });
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
        EXPECT_FALSE(done_);
    }
    ~WaitingRead() { thread_.join(); }  // the test ends only if the read went on

  private:
    std::atomic<bool> done_{false};
    std::thread thread_;
};

TEST(Faults, ClearLetsReadsThatWaitGoOn) {
    Faults faults;
    const WaitingRead read(faults);
    faults.Clear();
}

TEST(Faults, TheBackingIsDelayedAlone) {
    Faults faults;
    const WaitingRead read(faults, true);
    EXPECT_EQ(faults.BeforeRead(0, 1), 0) << "of the device, at once";
    faults.Clear();
    faults.BeforeBackingRead();
}

TEST(Faults, StopLetsReadsThatWaitGoOnAndLaterOnesDoNotWait) {
    Faults faults;
    const WaitingRead read(faults);
    faults.Stop();
    EXPECT_EQ(faults.BeforeRead(0, 1), 0);
}

TEST(Faults, AShortDelayPasses) {
    Faults faults;
    faults.DelayReads(1);
    EXPECT_EQ(faults.BeforeRead(0, 1), 0);
}

}  // namespace
}  // namespace softcache
