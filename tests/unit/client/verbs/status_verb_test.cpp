// SPDX-License-Identifier: MIT
// status: what is said of the service, its queue and the volumes.
#include <gtest/gtest.h>

#include <filesystem>

#include "client/show/exit_status.h"
#include "tests/unit/client/service/impostor.h"
#include "tests/unit/client/verbs/verbs_test.h"

namespace client {

namespace {

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
              "cacheBytes:0 files:n unitsResident:0 unitsSet:n unitsWithDriver:0 volume:s");
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
