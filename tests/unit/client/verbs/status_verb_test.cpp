// SPDX-License-Identifier: MIT
// What status says, once and watched.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

#include <filesystem>
#include <thread>

#include "client/show/exit_status.h"
#include "tests/unit/client/service/impostor.h"
#include "tests/unit/client/signals.h"
#include "tests/unit/client/verbs/verbs_test.h"
#include "tests/unit/support/fake_platform.h"

namespace client {

namespace {

class StatusVerbTest : public VerbsTest {};

TEST_F(StatusVerbTest, StatusTellsWhatIsThereAlsoWithoutAService) {
    PinHalf();
    const Json::Value report = Report({"status"}, 3);
    EXPECT_EQ(Shape(report),
              "configPath:s defects:a exitStatus:n queue:o requests:a requestsSeconds:0 schema:n "
              "services:a verb:s "
              "volumes:a");
    EXPECT_EQ(Shape(report["queue"]), "error:s");
    EXPECT_EQ(report["services"].size(), 0U);
    EXPECT_EQ(Shape(report["requests"][0]), "ahead:n files:n number:s state:s type:s volume:s");
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
    const BusyImpostor service(program, device_, 4 * kUnitBytes + 13200);
    const CallResult result = Run({"status"});
    EXPECT_EQ(result.status, kExitDone) << result.out;
    EXPECT_NE(result.out.find("takes requests: yes\n"), std::string::npos) << result.out;
    EXPECT_NE(result.out.find("carries them out: yes\n"), std::string::npos) << result.out;
    EXPECT_NE(result.out.find("0 messages waiting, room for 1024\n"), std::string::npos)
        << result.out;
    EXPECT_NE(result.out.find("running, 20% of 64.0 KiB read\n"), std::string::npos) << result.out;
    const Json::Value report = Report({"status"}, kExitDone);
    EXPECT_EQ(Shape(report["services"][0]),
              "configPath:s intakeAlive:b pid:n user:s workerAlive:b");
    EXPECT_EQ(report["requests"][0]["state"], "running");
    EXPECT_EQ(report["requests"][0]["devicePosition"].asUInt64(), 4 * kUnitBytes + 13200);
    EXPECT_EQ(report["requests"][0]["bytes"], 65536);
    EXPECT_EQ(report["requests"][0]["bytesRead"], 13200);
    EXPECT_EQ(report["requests"][0]["percent"], 20);
}

TEST_F(StatusVerbTest, DefectsOfTheListAreShown) {
    WriteFile(config_, R"({"requestQueue":["7"],"requests":{}})");
    const CallResult result = Run({"status"});
    EXPECT_NE(result.out.find("request 7 is queued and not stored"), std::string::npos)
        << result.out;
    EXPECT_NE(result.out.find("none queued\n"), std::string::npos) << result.out;
}

// Waits until more than `size` bytes of standard output, captured in a file, are written.
off_t GrownBeyond(off_t size) {
    struct stat status = {};
    const struct timespec pause = {0, 1000000};
    while (fstat(STDOUT_FILENO, &status) == 0 && status.st_size <= size) {
        nanosleep(&pause, nullptr);
    }
    return status.st_size;
}

TEST_F(StatusVerbTest, WatchedItIsShownAnewUntilASignal) {
    PinHalf();
    std::thread ender = OnceSignalsAreNoted([this] {
        const off_t first = GrownBeyond(0);
        WriteFile(config_, "{}");
        // The second look may have begun already.
        GrownBeyond(GrownBeyond(first));
        kill(getpid(), SIGINT);
    });
    const CallResult result = Run({"status", "--watch"});
    ender.join();
    EXPECT_EQ(result.status, kExitNoService) << "that of the last look";
    const size_t before = result.out.find("1 queued, in this order\n");
    ASSERT_NE(before, std::string::npos) << result.out;
    EXPECT_NE(result.out.find("none queued\n", before), std::string::npos) << result.out;
    EXPECT_NE(result.out.find("\n\n20", before), std::string::npos) << "an empty line, the time";
    EXPECT_EQ(result.out.find('\033'), std::string::npos);
}

}  // namespace

}  // namespace client
