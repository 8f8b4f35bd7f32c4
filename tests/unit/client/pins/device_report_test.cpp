// SPDX-License-Identifier: MIT
// What a check says of a device.
#include "client/pins/device_report.h"

#include <gtest/gtest.h>
#include <stdio.h>
#include <unistd.h>

#include "tests/unit/client/pins/pins_test.h"
#include "tests/unit/support/fake_platform.h"

namespace client {

namespace {

class DeviceReportTest : public PinsTest {
  protected:
    std::string Text() {
        testing::internal::CaptureStdout();
        DescribeDevice(Read()).Print();
        return testing::internal::GetCapturedStdout();
    }
};

TEST_F(DeviceReportTest, WhatAgreesIsOneLine) {
    Pinned("a", {{0, kUnit}});
    WriteBitmap({0});
    EXPECT_EQ(Text(), mount_ + ": pinned: 1 of 1 file good, 1 unit set\n");
}

TEST_F(DeviceReportTest, EachFindingHasItsLine) {
    Pinned("grown", {{0, 2 * kUnit}});
    const std::string gone = Pinned("gone", {{5 * kUnit, kUnit}});
    rename(Pinned("old", {{8 * kUnit, kUnit}}).c_str(), (mount_ + "/new").c_str());
    unlink(gone.c_str());  // last: the next file made would get its inode
    WriteBitmap({0, 5, 8, 9});
    LetTheCacheTell("", "\x03");
    state_.queue.push_back({"3", "reloadPinBlocks", mount_, ""});
    EXPECT_EQ(Text(),
              mount_ +
                  ": pinned, not in force: 0 of 3 files good, 4 units set\n"
                  "  grown: 1 unit of 2 not set: it grew, was rewritten, or a unit it shares "
                  "was cleared\n"
                  "  gone: gone: is nowhere on its volume\n"
                  "  old: renamed: lies at " +
                  mount_ +
                  "/new\n"
                  "  2 units set that no pinned file needs: 128.0 KiB of the cache held for "
                  "nothing\n"
                  "  the driver lacks bits of the bitmap file\n"
                  "  4 units of 4 not in the cache\n"
                  "  3 units set in the file and not in the driver's bitmap\n"
                  "  1 unit set in the driver's bitmap and not in the file\n"
                  "  1 request of the volume still queued; differences may be theirs\n"
                  "  remedy: bring the cache up, then quorcachepinctl check --repair --restart\n");
}

TEST_F(DeviceReportTest, WhatIsNotInTheCacheIsNotGood) {
    Pinned("a", {{0, 2 * kUnit}});
    Pinned("b", {{2 * kUnit, kUnit}});
    WriteBitmap({0, 1, 2});
    LetTheCacheTell("\x04", "\x07");
    EXPECT_EQ(Text(), mount_ +
                          ": pinned, not in the cache yet: 1 of 2 files good, 3 units set\n"
                          "  2 units of 3 not in the cache\n"
                          "  remedy: quorcachepinctl reload --missing\n");
    const Json::Value json = DescribeDevice(Read()).ToJson();
    EXPECT_TRUE(json["agrees"].asBool());
    EXPECT_EQ(json["state"].asString(), "pinned, not in the cache yet");
    EXPECT_EQ(json["unitsAbsent"].asInt(), 2);
    EXPECT_EQ(json["files"][0]["unitsAbsent"].asInt(), 2);
    EXPECT_EQ(json["cacheBytes"].asInt(), 1 << 20);
    WriteFile(dir_ / "resident", "\x07");
    EXPECT_EQ(Text(), mount_ + ": pinned and in the cache: 2 of 2 files good, 3 units set\n");
    Pinned("c", {{3 * kUnit, 14 * kUnit}});
    WriteFile(mount_ + "/quorcachepinfile.bitmap", "\xff\xff\x01");
    WriteFile(dir_ / "resident", "\xff\xff\x01");
    WriteFile(dir_ / "pinned", "\xff\xff\x01");
    EXPECT_EQ(Text(), mount_ +
                          ": more pinned than the cache holds: 3 of 3 files good, 17 units set\n"
                          "  1.1 MiB are pinned, the cache holds 1.0 MiB\n"
                          "  remedy: unpin files, or start the cache with a larger --ssd-size\n");
}

TEST_F(DeviceReportTest, TheJsonFormHasTheSameFacts) {
    const std::string path = Pinned("a", {{0, 2 * kUnit}});
    unlink(Pinned("b").c_str());
    WriteBitmap({1, 7});
    const Json::Value json = DescribeDevice(Read()).ToJson();
    EXPECT_EQ(json["volume"].asString(), mount_);
    EXPECT_TRUE(json["mounted"].asBool());
    EXPECT_FALSE(json["agrees"].asBool());
    ASSERT_EQ(json["files"].size(), 2U);
    EXPECT_EQ(json["files"][0]["path"].asString(), path);
    EXPECT_EQ(json["files"][0]["fate"].asString(), "there");
    EXPECT_TRUE(json["files"][0]["reason"].isNull());
    EXPECT_EQ(json["files"][0]["units"].asInt(), 2);
    EXPECT_EQ(json["files"][0]["unitsMissing"].asInt(), 1);
    EXPECT_EQ(json["files"][1]["fate"].asString(), "gone");
    EXPECT_EQ(json["unitsSet"].asInt(), 2);
    EXPECT_EQ(json["unitsNeeded"].asInt(), 2);
    EXPECT_EQ(json["unitsSurplus"].asInt(), 1);
    EXPECT_TRUE(json["unitsDriverLacks"].isNull()) << "the cache is mute";
    EXPECT_TRUE(json["uncertain"].isNull());
}

TEST_F(DeviceReportTest, ADeviceGoesByTheMountPathThatHasAList) {
    const std::string again = MountAgain();
    Place(Make("a"), {{0, kUnit}});
    state_.pinned[again].push_back({"a", InodeOf(mount_ + "/a")});
    WriteBitmap({0});
    EXPECT_EQ(Text(),
              again + ": pinned: 1 of 1 file good, 1 unit set; also mounted at " + mount_ + "\n");
    Pinned("b", {{0, kUnit}});
    g_platform.mappings[InodeOf(mount_ + "/a")][0].result = -1;
    EXPECT_NE(Text().find("  " + again + "/a: cannot be looked at: its extents cannot be read\n"),
              std::string::npos)
        << "a path of another mount is written out";
}

TEST_F(DeviceReportTest, AVolumeThatIsNotMountedIsNotForgotten) {
    Record record = DescribeUnmounted("/nowhere", UnmountedEntries({{"a", 1}}, "/nowhere"));
    EXPECT_EQ(record.ToJson()["files"][0]["fate"].asString(), "cannot be looked at");
    EXPECT_FALSE(record.ToJson()["mounted"].asBool());
    testing::internal::CaptureStdout();
    record.Print();
    EXPECT_EQ(testing::internal::GetCapturedStdout(),
              "/nowhere: 1 file listed, cannot be looked at: the volume is not mounted\n");
}

TEST_F(DeviceReportTest, WhatStandsInTheWayOfARepairIsSaid) {
    const std::string bitmap = mount_ + "/quorcachepinfile.bitmap";
    const std::string path = Pinned("a", {{1023 * kUnit, 3 * kUnit}});
    WriteFile(bitmap, std::string(127, '\0') + "\x80surplus");
    g_platform.mappings[InodeOf(Pinned("b"))][0].result = -1;
    EXPECT_EQ(
        Text(),
        mount_ +
            ": list and bitmap differ: 1 of 2 files good, 1 unit set\n"
            "  b: cannot be looked at: its extents cannot be read\n"
            "  " +
            bitmap +
            " has 135 bytes, the bitmap 128: every request fails until the file is removed or "
            "repaired\n"
            "  2 units at the device's end, for which there are no bits\n"
            "  " +
            mount_ +
            "/b cannot be looked at (its extents cannot be read), so no unit can be said to be "
            "unneeded\n"
            "  remedy: quorcachepinctl check --repair\n");
    const Json::Value json = DescribeDevice(Read()).ToJson();
    EXPECT_TRUE(json["bitmapFileTooLong"].asBool());
    EXPECT_EQ(json["unitsWithoutBit"].asInt(), 2);
    EXPECT_NE(json["uncertain"].asString().find("no unit can be said"), std::string::npos);
}

TEST_F(DeviceReportTest, WithoutACacheNothingIsSaidToLieBehindTheBitmapsEnd) {
    Pinned("a", {{1023 * kUnit, 3 * kUnit}});
    WriteBitmap({1023});
    g_platform.configs.clear();
    EXPECT_EQ(Text().find("device's end"), std::string::npos) << Text();
}

}  // namespace

}  // namespace client
