// SPDX-License-Identifier: MIT
// Which request the service is at, and whether requests are taken and carried out.
#include "client/verbs/status.h"

#include <gtest/gtest.h>

#include <filesystem>

#include "client/show/exit_status.h"
#include "tests/unit/client/service/impostor.h"
#include "tests/unit/client/verbs/verbs_test.h"
#include "tests/unit/support/fake_ioctl.h"
#include "tests/unit/support/fake_platform.h"

namespace client {

namespace {

constexpr char kOvertaken[] = "waiting (overtaken: its volume was pending)";

class StatusTest : public VerbsTest {
  protected:
    void SetUp() override {
        VerbsTest::SetUp();
        second_ = mount_ + "2";
        std::filesystem::create_directory(second_);
        WriteFile(dir_ / "device2", "");
        g_platform.AddVolume(second_, "uuid-2", "/dev/ssd2", dir_ / "device2");
        SetDeviceSize(dir_ / "device2", kDeviceSize);
        program_ = dir_ / "quorcachepinfiled";
        std::filesystem::create_symlink("/usr/bin/python3", program_);
    }

    // Queues a reload of each of these mount paths.
    void Queue(const std::vector<std::string>& mountPaths) {
        std::string order;
        std::string requests;
        for (size_t i = 0; i < mountPaths.size(); ++i) {
            const std::string number = "\"" + std::to_string(i) + "\"";
            order += (i == 0 ? "" : ",") + number;
            requests += (i == 0 ? "" : ",") + number +
                        R"(:{"type":"reloadPinBlocks","mountPath":")" + mountPaths[i] +
                        R"(","data":null})";
        }
        WriteFile(config_, R"({"nextRequestNum":9,"requestQueue":[)" + order + R"(],"requests":{)" +
                               requests + "}}");
    }

    std::vector<std::string> States() {
        std::vector<std::string> states;
        for (const RequestStatus& request : ReadStatus(config_).requests) {
            states.push_back(request.state);
        }
        return states;
    }

    std::string second_;   // mount path of another volume
    std::string program_;  // what a stand-in of the service is called
};

using Texts = std::vector<std::string>;

TEST_F(StatusTest, WithoutAServiceAllRequestsWait) {
    Queue({mount_, second_});
    EXPECT_EQ(States(), (Texts{"waiting", "waiting"}));
}

TEST_F(StatusTest, TheRequestOfTheOpenDeviceRuns) {
    Queue({mount_, mount_, second_});
    WriteFile(device_, "");
    const BusyImpostor service(program_, device_, 70000);
    const Status status = ReadStatus(config_);
    EXPECT_EQ(States(), (Texts{"running", "waiting", "waiting"}));
    ASSERT_EQ(status.requests.size(), 3U);
    EXPECT_EQ(status.requests[0].position, 70000U);
    EXPECT_EQ(status.requests[1].position, 0U);
    EXPECT_EQ(status.requests[2].ahead, 2U);
}

TEST_F(StatusTest, RequestsBeforeTheOneThatRunsWereOvertaken) {
    Queue({mount_, mount_, second_, second_});
    const BusyImpostor service(program_, dir_ / "device2", 1);
    EXPECT_EQ(States(), (Texts{kOvertaken, kOvertaken, "running", "waiting"}));
    const Status status = ReadStatus(config_);
    EXPECT_FALSE(status.requests[1].ahead.has_value()) << "nobody knows when it is released";
    EXPECT_EQ(status.requests[3].ahead, 1U);
}

TEST_F(StatusTest, WhileNoDeviceIsOpenTheFirstIsNext) {
    Queue({mount_, second_});
    const BusyImpostor service(program_, "", 0);
    EXPECT_EQ(States(), (Texts{"next, or just begun", "waiting"}));
    g_platform.configs.clear();
    EXPECT_EQ(States(), (Texts{"next, or just begun", "waiting"})) << "volumes without a cache";
}

TEST_F(StatusTest, WithoutAWorkerNothingIsNext) {
    Queue({mount_, second_});
    const std::string shell = dir_ / "bin";
    std::filesystem::create_directory(shell);
    std::filesystem::create_symlink("/bin/sh", shell + "/quorcachepinfiled");
    const Impostor service(shell + "/quorcachepinfiled", {});
    EXPECT_EQ(States(), (Texts{"waiting", "waiting"}));
}

TEST_F(StatusTest, VolumesWithPinnedFilesOrRequestsAreLookedAt) {
    EXPECT_TRUE(ReadStatus(config_).volumes.empty());
    Queue({second_});
    const Status queued = ReadStatus(config_);
    ASSERT_EQ(queued.volumes.size(), 1U);
    EXPECT_EQ(queued.volumes[0].view.mountPath, second_);
    PinHalf();
    const Status pinned = ReadStatus(config_);
    ASSERT_EQ(pinned.volumes.size(), 1U);
    EXPECT_EQ(pinned.volumes[0].view.mountPath, mount_);
}

struct HealthRow {
    const char* what;
    void (*spoil)(Status& status);
    int expected;
};

TEST(StatusHealthTest, EveryPartMustWork) {
    const HealthRow rows[] = {
        {"all well", [](Status&) {}, kExitDone},
        {"no service", [](Status& status) { status.services.clear(); }, kExitNoService},
        {"no intake", [](Status& status) { status.services[0].intakeAlive = false; },
         kExitNoService},
        {"no worker", [](Status& status) { status.services[0].workerAlive = false; },
         kExitNoService},
        {"it hangs", [](Status& status) { status.standsStill = true; }, kExitNoService},
        {"no queue", [](Status& status) { status.queueKnown = false; }, kExitNoService},
        {"no list", [](Status& status) { status.stored.known = false; }, kExitNoService},
        {"a volume on which nothing is pinned",
         [](Status& status) { status.volumes.emplace_back(); }, kExitDone},
        {"one volume is worse off than the other",
         [](Status& status) {
             status.volumes.resize(2);
             status.volumes[0].health = PinHealth::kNotInForce;
             status.volumes[1].health = PinHealth::kNotCached;
         },
         kExitNotInForce},
        {"not in the cache yet",
         [](Status& status) {
             status.volumes.emplace_back();
             status.volumes[0].health = PinHealth::kNotCached;
         },
         kExitNotCached},
        {"a volume is not mounted", [](Status& status) { status.unmounted = {"/mnt/away"}; },
         kExitPartly},
    };
    for (const HealthRow& row : rows) {
        Status status;
        status.services.emplace_back();
        status.services[0].intakeAlive = status.services[0].workerAlive = true;
        status.queueKnown = status.stored.known = true;
        row.spoil(status);
        EXPECT_EQ(ExitStatusOf(status), row.expected) << row.what;
    }
}

}  // namespace

}  // namespace client
