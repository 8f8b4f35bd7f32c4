// SPDX-License-Identifier: MIT
// Which numbers there are of what state; that they are right on a real cache is shown by the
// stories.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <map>
#include <sstream>

#include "client/show/exit_status.h"
#include "tests/unit/client/service/impostor.h"
#include "tests/unit/client/verbs/verbs_test.h"
#include "tests/unit/support/fake_platform.h"

namespace client {

namespace {

class MetricsVerbTest : public VerbsTest {
  protected:
    // The samples by name and labels; the test fails when one is there twice.
    std::map<std::string, std::string> Samples() {
        std::map<std::string, std::string> samples;
        const CallResult result = Run({"metrics"});
        EXPECT_EQ(result.status, kExitDone);
        EXPECT_EQ(result.talk, "");
        std::istringstream lines(result.out);
        for (std::string line; std::getline(lines, line);) {
            const size_t end = line.rfind(' ');
            if (line[0] != '#') {
                EXPECT_TRUE(samples.emplace(line.substr(0, end), line.substr(end + 1)).second)
                    << line;
            }
        }
        return samples;
    }
    // The value of a sample of the volume, "-" when there is none.
    std::string Of(const std::string& name, const std::string& mountPath) {
        const auto samples = Samples();
        const auto found = samples.find("quorcachepin_" + name + "{volume=\"" + mountPath + "\"}");
        return found == samples.end() ? "-" : found->second;
    }
    std::string Plain(const std::string& name) {
        const auto samples = Samples();
        const auto found = samples.find("quorcachepin_" + name);
        return found == samples.end() ? "-" : found->second;
    }
};

TEST_F(MetricsVerbTest, AServiceThatDoesNotRunIsDown) {
    EXPECT_EQ(Plain("service_up"), "0");
    EXPECT_EQ(Plain("intake_alive"), "0");
    EXPECT_EQ(Plain("worker_alive"), "0");
    EXPECT_EQ(Plain("messages_waiting"), "-") << "without a queue there is nothing to count";
}

TEST_F(MetricsVerbTest, AServiceThatWorksIsUp) {
    MakeQueue();
    const std::string program = dir_ / "quorcachepinfiled";
    std::filesystem::create_symlink("/usr/bin/python3", program);
    const BusyImpostor service(program, "", 0);
    EXPECT_EQ(Plain("service_up"), "1");
    EXPECT_EQ(Plain("intake_alive"), "1");
    EXPECT_EQ(Plain("worker_alive"), "1");
    EXPECT_EQ(Plain("messages_waiting"), "0");
    EXPECT_EQ(Plain("messages_limit"), "1024");
}

TEST_F(MetricsVerbTest, ListAndQueueAreCountedByVolume) {
    PinHalf();
    EXPECT_EQ(Plain("store_readable"), "1");
    EXPECT_EQ(Plain("store_defects"), "0");
    EXPECT_EQ(Plain("requests_stored_total"), "8");
    EXPECT_EQ(Plain("requests_oldest_number"), "7");
    EXPECT_EQ(Of("requests_queued", mount_), "1");
    EXPECT_EQ(Of("pinned_files", mount_), "1");
    EXPECT_EQ(Of("pinned_units", mount_), "1");
    EXPECT_EQ(Of("volume_mounted", mount_), "1");
    EXPECT_EQ(Of("volume_cached", mount_), "1");
    EXPECT_EQ(Of("copied_files", mount_), "0");
    EXPECT_EQ(Of("pinned_resident_units", mount_), "-") << "this cache does not tell";
    EXPECT_EQ(Of("cache_hits_total", mount_), "-");
}

TEST_F(MetricsVerbTest, WithoutAQueueThereIsNoOldestRequest) {
    EXPECT_EQ(Plain("requests_oldest_number"), "-");
    EXPECT_EQ(Plain("requests_stored_total"), "0");
    EXPECT_EQ(Of("requests_queued", mount_), "0") << "a cached volume is shown all the same";
}

TEST_F(MetricsVerbTest, AStoreThatCannotBeReadIsNoEmptyOne) {
    WriteFile(config_, "{");
    EXPECT_EQ(Plain("store_readable"), "0");
    EXPECT_EQ(Plain("requests_stored_total"), "-");
    EXPECT_EQ(Of("pinned_files", mount_), "-");
    EXPECT_EQ(Of("volume_cached", mount_), "1");
}

TEST_F(MetricsVerbTest, WhatTheListHasLostIsSeenBesideItsCopy) {
    PinHalf();
    Run({"keep-copy"});
    WriteFile(config_, "{}");
    EXPECT_EQ(Of("copied_files", mount_), "1");
    EXPECT_EQ(Of("pinned_files", mount_), "0");
    EXPECT_GT(std::stoll(Plain("copy_timestamp_seconds")), 1700000000);
}

TEST_F(MetricsVerbTest, TheLastRepairIsKnownOnceThereWasOne) {
    EXPECT_EQ(Plain("repair_timestamp_seconds"), "-");
    WriteFile(config_ + ".repaired", R"({"time":1700000000,"left":2})");
    EXPECT_EQ(Plain("repair_timestamp_seconds"), "1700000000");
    EXPECT_EQ(Plain("repair_left"), "2");
}

TEST_F(MetricsVerbTest, VolumesThatAreGoneOrWithoutACacheAreSaidToBe) {
    WriteFile(config_, R"({"volumes":{"/gone":{"files":{"7":"a","8":"b"}}}})");
    EXPECT_EQ(Of("volume_mounted", "/gone"), "0");
    EXPECT_EQ(Of("volume_cached", "/gone"), "0");
    EXPECT_EQ(Of("pinned_files", "/gone"), "2");
    PinHalf();
    g_platform.configs.clear();
    EXPECT_EQ(Of("volume_mounted", mount_), "1");
    EXPECT_EQ(Of("volume_cached", mount_), "0");
    EXPECT_EQ(Of("pinned_units", mount_), "-");
    WriteFile(config_, "{}");
    EXPECT_EQ(Of("volume_mounted", mount_), "-") << "with neither pins nor cache it is no matter";
}

TEST_F(MetricsVerbTest, ADeviceIsCountedOnceHoweverOftenItIsMounted) {
    const std::string again = mount_ + "-again";
    std::filesystem::create_directory(again);
    g_platform.AddVolume(again, "uuid-1", "/dev/ssd1", device_);
    g_platform.AddVolume(again, "uuid-1", "/dev/ssd1", device_);
    EXPECT_EQ(Of("volume_cached", mount_), "1");
    EXPECT_EQ(Of("volume_cached", again), "1");
    EXPECT_EQ(Of("pinned_units", mount_), "0");
    EXPECT_EQ(Of("pinned_units", again), "-");
    WriteFile(config_, R"({"volumes":{")" + again + R"(":{"files":{"7":"a"}}}})");
    EXPECT_EQ(Of("pinned_units", mount_), "-") << "it goes with its list";
    EXPECT_EQ(Of("pinned_units", again), "0");
}

TEST_F(MetricsVerbTest, AFileIsReplacedInOneStep) {
    const std::string path = dir_ / "quorcachepin.prom";
    WriteFile(path, "old");
    const CallResult result = Run({"metrics", "-o", path});
    EXPECT_EQ(result.status, kExitDone);
    EXPECT_EQ(result.out + result.talk, "");
    const std::string text = ReadFile(path);
    EXPECT_EQ(text.rfind("# HELP quorcachepin_build_info ", 0), 0U) << text;
    EXPECT_EQ(text.back(), '\n');
    struct stat status = {};
    stat(path.c_str(), &status);
    EXPECT_EQ(status.st_mode & 07777U, 0644U);
    EXPECT_FALSE(Exists(path + ".new"));
}

TEST_F(MetricsVerbTest, AFileThatCannotBeReplacedIsNamed) {
    const std::string path = dir_ / "none/quorcachepin.prom";
    const CallResult result = Run({"metrics", "-o", path});
    EXPECT_EQ(result.status, kExitPartly);
    EXPECT_EQ(result.talk, "quorcachepinctl: " + path + ": No such file or directory\n");
    EXPECT_EQ(Shape(Report({"metrics", "-o", path}, kExitPartly)),
              "error:s exitStatus:n schema:n text:s verb:s written:s");
}

}  // namespace

}  // namespace client
