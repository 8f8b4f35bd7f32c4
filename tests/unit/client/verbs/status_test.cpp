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
}

TEST_F(StatusTest, RequestsBeforeTheOneThatRunsWereOvertaken) {
    Queue({mount_, mount_, second_, second_});
    const BusyImpostor service(program_, dir_ / "device2", 1);
    EXPECT_EQ(States(), (Texts{kOvertaken, kOvertaken, "running", "waiting"}));
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

class StatusVerbTest : public VerbsTest {};

TEST_F(StatusVerbTest, StatusTellsWhatIsThereAlsoWithoutAService) {
    PinHalf();
    const Json::Value report = Report({"status"}, 3);
    EXPECT_EQ(Shape(report),
              "configPath:s defects:a exitStatus:n queue:o requests:a schema:n services:a verb:s "
              "volumes:a");
    EXPECT_EQ(Shape(report["queue"]), "error:s");
    EXPECT_EQ(report["services"].size(), 0U);
    EXPECT_EQ(Shape(report["requests"][0]), "files:n number:s state:s type:s volume:s");
    EXPECT_EQ(Shape(report["volumes"][0]),
              "cacheBytes:0 files:n remedy:0 state:s unitsResident:0 unitsSet:n unitsWithDriver:0 "
              "volume:s");
    MakeQueue();
    EXPECT_EQ(Shape(Report({"status"}, 3)["queue"]), "bytes:n id:n key:n limitBytes:n messages:n");
}

TEST_F(StatusVerbTest, WithoutAServiceItIsSaidInWords) {
    PinHalf();
    const CallResult result = Run({"status"});
    EXPECT_EQ(result.status, kExitNoService);
    EXPECT_NE(result.out.find("does not run here\n"), std::string::npos) << result.out;
    EXPECT_NE(result.out.find("1 queued, in this order\n"), std::string::npos) << result.out;
    EXPECT_NE(result.out.find("reload"), std::string::npos) << result.out;
    EXPECT_NE(result.out.find(mount_ + ": 1 file pinned, 1 unit = 64.0 KiB\n"), std::string::npos)
        << result.out;
    EXPECT_NE(result.out.find(" pinned\n"), std::string::npos) << result.out;
}

TEST_F(StatusVerbTest, VolumesThatAreNotInForceOrNotMountedAreNamed) {
    PinHalf();
    g_platform.stats["/dev/ssd1"].state = 0;
    const std::string out = Run({"status"}).out;
    EXPECT_NE(out.find("pinned, not in force: the cache does not serve now, or does not keep "
                       "pins; remedy: bring the cache up"),
              std::string::npos)
        << out;
    WriteFile(config_, R"({"volumes":{"/mnt/away":{"files":{"5":"x"}}}})");
    EXPECT_NE(Run({"status"}).out.find("/mnt/away: 1 file pinned\n"), std::string::npos);
    const Json::Value volumes = Report({"status"}, kExitNoService)["volumes"];
    ASSERT_EQ(volumes.size(), 1U);
    EXPECT_EQ(volumes[0]["state"], "not mounted");
}

TEST_F(StatusVerbTest, AServiceThatWorksAndItsRequestAreShown) {
    PinHalf();
    MakeQueue();
    const std::string program = dir_ / "quorcachepinfiled";
    std::filesystem::create_symlink("/usr/bin/python3", program);
    const BusyImpostor service(program, device_, 70000);
    const CallResult result = Run({"status"});
    EXPECT_EQ(result.status, kExitDone) << result.out;
    EXPECT_NE(result.out.find("takes requests: yes\n"), std::string::npos) << result.out;
    EXPECT_NE(result.out.find("carries them out: yes\n"), std::string::npos) << result.out;
    EXPECT_NE(result.out.find("0 messages waiting, room for 1024\n"), std::string::npos)
        << result.out;
    EXPECT_NE(result.out.find("running\n"), std::string::npos) << result.out;
    const Json::Value report = Report({"status"}, kExitDone);
    EXPECT_EQ(Shape(report["services"][0]),
              "configPath:s intakeAlive:b pid:n user:s workerAlive:b");
    EXPECT_EQ(report["requests"][0]["state"], "running");
    EXPECT_EQ(report["requests"][0]["devicePosition"], 70000);
}

TEST_F(StatusVerbTest, DefectsOfTheListAreShown) {
    WriteFile(config_, R"({"requestQueue":["7"],"requests":{}})");
    const CallResult result = Run({"status"});
    EXPECT_NE(result.out.find("request 7 is queued and not stored"), std::string::npos)
        << result.out;
    EXPECT_NE(result.out.find("none queued\n"), std::string::npos) << result.out;
}

}  // namespace

}  // namespace client
