// SPDX-License-Identifier: MIT
// What is seen of requests while a service reads for one of them, or for another.
#include "client/request/under_way.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <memory>

#include "tests/unit/client/client_test.h"
#include "tests/unit/client/service/impostor.h"
#include "tests/unit/support/fake_ioctl.h"
#include "tests/unit/support/fake_platform.h"

namespace client {

namespace {

class UnderWayTest : public ClientTest {
  protected:
    void SetUp() override {
        ClientTest::SetUp();
        second_ = mount_ + "2";
        std::filesystem::create_directory(second_);
        WriteFile(dir_ / "device2", "");
        g_platform.AddVolume(second_, "uuid-2", "/dev/ssd2", dir_ / "device2");
        SetDeviceSize(dir_ / "device2", kDeviceSize);
        std::filesystem::create_symlink("/usr/bin/python3", dir_ / "quorcachepinfiled");
    }

    // Queues reloads of these mount paths, numbered from 0.
    void Queue(const std::vector<std::string>& mountPaths) {
        state_.queue.clear();
        for (const std::string& mountPath : mountPaths) {
            state_.queue.push_back(
                {std::to_string(state_.queue.size()), "reloadPinBlocks", mountPath, ""});
        }
    }

    // Watches the requests of these numbers, each of which reads 4 units from the eighth.
    void Watch(const std::vector<std::string>& numbers) {
        for (const std::string& number : numbers) {
            Message message = VolumeMessage(kRequestReloadPinBlocks, mount_);
            message.reading = {{0, 4 * kUnit, 8 * kUnit, 0}};
            requests_.push_back({message, WatchState::kQueued, number});
        }
    }

    // Looks while a service stands at this unit of the device, or has none open.
    ProgressView Look(const std::string& device, uint64_t unit = 0) {
        const BusyImpostor impostor(dir_ / "quorcachepinfiled", device, unit * kUnitBytes);
        ServiceProcess service;
        service.pid = impostor.pid();
        EXPECT_TRUE(RefreshService(service));
        return underWay_.Look(requests_, state_, service);
    }

    std::string second_;  // mount path of another volume
    ConfigState state_;
    std::vector<Watched> requests_;
    UnderWay underWay_;
};

TEST_F(UnderWayTest, TheRequestThatIsReadForIsSeenWithItsShare) {
    Queue({mount_, mount_});
    Watch({"0", "1"});
    ProgressView view = Look(device_, 9);
    EXPECT_EQ(view.state, "reading");
    EXPECT_FALSE(view.stuck);
    EXPECT_EQ(view.percent, 25U);
    EXPECT_EQ(view.ahead, 0U);
    EXPECT_EQ(view.bytes, 8 * kUnitBytes);
    EXPECT_EQ(view.bytesDone, kUnitBytes);
    view = Look(device_, 100);
    EXPECT_EQ(view.bytesDone, kUnitBytes) << "what was shown does not shrink";
    view = Look("");
    EXPECT_EQ(view.state, "interrupted, waits (is the volume pending?)");
    EXPECT_FALSE(view.percent.has_value());
}

TEST_F(UnderWayTest, AnothersRequestIsWaitedForAndItsShareIsKnown) {
    // Of the other volume 10 units are read: the service has 3 of them behind it.
    std::string bits(kDeviceSize >> 19, '\0');
    bits[0] = '\xff';
    bits[1] = '\x03';
    WriteFile(second_ + "/quorcachepinfile.bitmap", bits);
    Queue({second_, second_, mount_});
    Watch({"2"});
    const ProgressView view = Look(dir_ / "device2", 3);
    EXPECT_EQ(view.state, "waits for the requests before it");
    EXPECT_TRUE(view.stuck);
    EXPECT_EQ(view.ahead, 2U);
    EXPECT_EQ(view.percent, 30U);
    EXPECT_EQ(view.bytesDone, 0U);
    EXPECT_EQ(view.aheadSeconds, 0) << "none has left yet";
    state_.queue.erase(state_.queue.begin());
    EXPECT_GT(Look(dir_ / "device2", 0).aheadSeconds, 0);
}

TEST_F(UnderWayTest, WhatIsOvertakenIsNotWaitedFor) {
    Queue({second_, mount_, mount_});
    Watch({"1", "2"});
    EXPECT_EQ(Look("").ahead, 1U);
    EXPECT_EQ(Look(device_, 9).ahead, 0U) << "it runs";
    requests_[0].state = WatchState::kLeft;
    state_.queue.erase(state_.queue.begin() + 1);
    const ProgressView view = Look("");
    EXPECT_EQ(view.ahead, 0U) << "the other volume is pending";
    EXPECT_EQ(view.state, "about to begin");
    EXPECT_EQ(view.requestsDone, 1U);
}

TEST_F(UnderWayTest, WhatIsNotStoredYetIsOnItsWay) {
    Watch({""});
    requests_[0].state = WatchState::kUnseen;
    const ProgressView view = Look("");
    EXPECT_EQ(view.state, "on its way into the queue");
    EXPECT_FALSE(view.stuck);
}

}  // namespace

}  // namespace client
