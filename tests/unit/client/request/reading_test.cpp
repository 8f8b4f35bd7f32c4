// SPDX-License-Identifier: MIT
// What requests read, which of them runs, and how far it is.
#include "client/request/reading.h"

#include <gtest/gtest.h>

#include <filesystem>

#include "client/volume/units.h"
#include "tests/unit/client/client_test.h"
#include "tests/unit/client/service/impostor.h"

namespace client {

namespace {

struct PositionRow {
    const char* what;
    uint64_t position;
    uint64_t read;
};

TEST(BytesReadTest, ThePositionOnTheDeviceTellsWhatWasRead) {
    // In reading order: 1 MiB at 10 MiB, 1 MiB that is not read, 2 MiB at 4 MiB, 1 MiB at 3 MiB.
    const uint64_t mib = 1 << 20;
    const std::vector<FileMappingEntry> reading = {{0, 2048, 10 * 2048, 0},
                                                   {2048, 2048, 20 * 2048, 1},
                                                   {4096, 4096, 4 * 2048, 0},
                                                   {8192, 2048, 3 * 2048, 0}};
    const PositionRow rows[] = {
        {"before the first read", 0, 0},
        {"at the begin of the first extent", 10 * mib, 0},
        {"in the first", 10 * mib + 65536, 65536},
        {"behind the first", 11 * mib, mib},
        {"in the one that is not read", 20 * mib + 65536, 0},
        {"in the third", 5 * mib, 2 * mib},
        {"at the begin of the last: all before it is read", 3 * mib, 3 * mib},
        {"at the end of the last, where another begins", 4 * mib, 4 * mib},
        {"at the end of the third", 6 * mib, 3 * mib},
        {"elsewhere", 7 * mib, 0},
    };
    for (const PositionRow& row : rows) {
        EXPECT_EQ(BytesRead(reading, row.position), row.read) << row.what;
    }
}

class ReadingTest : public ClientTest {
  protected:
    std::string Starts(const StoredRequest& request) const {
        std::string starts;
        for (const FileMappingEntry& extent : ReadingOf(request, Volumes())) {
            starts += std::to_string(extent.deviceStartSector / kUnit) + "+" +
                      std::to_string(extent.numSectors / kUnit) + " ";
        }
        return starts;
    }
    std::string Entry(const std::string& relative) const {
        return relative + "#" + std::to_string(InodeOf(mount_ + "/" + relative));
    }
};

TEST_F(ReadingTest, APinReadsItsFilesInTheirOrder) {
    MakeAt("a", 30, 2);
    Place(Make("b"), {{10 * kUnit, kUnit}, {5 * kUnit, kUnit}});
    EXPECT_EQ(Starts({"1", "pinFiles", mount_, Entry("b") + ";" + Entry("a")}), "10+1 5+1 30+2 ");
    EXPECT_EQ(Starts({"1", "pinFiles", mount_, "a#1;" + Entry("b")}), "10+1 5+1 ")
        << "another file lies there";
    EXPECT_EQ(Starts({"1", "unpinFiles", mount_, Entry("a")}), "");
    EXPECT_EQ(Starts({"1", "pinFiles", "/mnt/away", Entry("a")}), "");
}

TEST_F(ReadingTest, AReloadReadsTheUnitsThatAreSet) {
    WriteBitmap({4, 5, 9});
    EXPECT_EQ(Starts({"1", "reloadPinBlocks", mount_, ""}), "4+2 9+1 ");
}

TEST_F(ReadingTest, TheFirstRequestOfTheOpenDeviceRuns) {
    const std::string program = dir_ / "quorcachepinfiled";
    std::filesystem::create_symlink("/usr/bin/python3", program);
    const BusyImpostor impostor(program, device_, 70000);
    ServiceProcess service;
    service.pid = impostor.pid();
    ASSERT_TRUE(RefreshService(service));
    const DeviceOf deviceOf = [this](const std::string& mountPath) {
        return mountPath == mount_ ? device_ : "";
    };
    const StoredRequest other = {"0", "reloadPinBlocks", "/mnt/other", ""};
    const StoredRequest ours = {"1", "reloadPinBlocks", mount_, ""};
    const std::optional<RunningRequest> running =
        FindRunning({other, ours, other, ours}, service, deviceOf);
    ASSERT_TRUE(running.has_value());
    EXPECT_EQ(running->index, 1U);
    EXPECT_EQ(running->position, 70000U);
    EXPECT_FALSE(FindRunning({other}, service, deviceOf).has_value());
    EXPECT_FALSE(FindRunning({}, service, deviceOf).has_value());
}

}  // namespace

}  // namespace client
