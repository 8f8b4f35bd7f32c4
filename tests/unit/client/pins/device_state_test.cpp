// SPDX-License-Identifier: MIT
// The list, the disk and the bitmaps of a device against each other.
#include "client/pins/device_state.h"

#include <gtest/gtest.h>
#include <stdio.h>
#include <unistd.h>

#include <filesystem>

#include "tests/unit/client/pins/pins_test.h"
#include "tests/unit/support/fake_platform.h"

namespace client {

namespace {

using DeviceStateTest = PinsTest;

std::vector<uint64_t> UnitsOf(const UnitSet& set) {
    std::vector<uint64_t> units;
    for (const UnitRun& run : set.Runs()) {
        for (uint64_t unit = run.first; unit <= run.last; ++unit) {
            units.push_back(unit);
        }
    }
    return units;
}
using Units = std::vector<uint64_t>;

TEST_F(DeviceStateTest, WhatAgreesHasNothingMissingAndNothingLeftOver) {
    Pinned("a", {{0, kUnit}, {10 * kUnit, 3 * kUnit}});
    Pinned("b", {{12 * kUnit + 5, 8}});
    WriteBitmap({0, 10, 11, 12});
    const DeviceState device = Read();
    EXPECT_TRUE(Agrees(device));
    EXPECT_EQ(UnitsOf(device.needed), (Units{0, 10, 11, 12}));
    EXPECT_EQ(device.listed.size(), 2U);
    EXPECT_EQ(device.uncertain, "");
}

TEST_F(DeviceStateTest, AMissingUnitThatIsSharedCountsOnce) {
    Pinned("a", {{0, 4 * kUnit}});
    Pinned("b", {{3 * kUnit, 2 * kUnit}});
    Pinned("c", {{100 * kUnit, kUnit}});
    WriteBitmap({0, 1, 100});
    const DeviceState device = Read();
    EXPECT_FALSE(Agrees(device));
    EXPECT_EQ(UnitsOf(device.missing), (Units{2, 3, 4}));
}

TEST_F(DeviceStateTest, BitsThatNoFileNeedsAreSurplus) {
    Pinned("a", {{8 * kUnit, kUnit}});
    WriteBitmap({7, 8, 9, 1023});
    EXPECT_FALSE(Agrees(Read()));
    EXPECT_EQ(UnitsOf(Read().surplus), (Units{7, 9, 1023}));
}

TEST_F(DeviceStateTest, OnlyFilesAtTheirPathsAgree) {
    const std::string path = Pinned("a", {{0, kUnit}});
    WriteBitmap({0});
    EXPECT_TRUE(Agrees(Read()));
    rename(path.c_str(), (mount_ + "/b").c_str());
    EXPECT_FALSE(Agrees(Read()));
    EXPECT_EQ(UnitsOf(Read().needed), Units{0}) << "a renamed file stays pinned";
    EXPECT_EQ(UnitsOf(Read().surplus), Units{});
    unlink((mount_ + "/b").c_str());
    EXPECT_FALSE(Agrees(Read()));
    EXPECT_EQ(UnitsOf(Read().surplus), Units{0});
}

TEST_F(DeviceStateTest, WhatIsQueuedIsNeededAndNotMissing) {
    Place(Make("next"), {{5 * kUnit, 2 * kUnit}});
    Queue("next");
    WriteBitmap({5});
    const DeviceState device = Read();
    EXPECT_EQ(device.requests, 1U);
    EXPECT_EQ(device.queued.size(), 1U);
    EXPECT_EQ(UnitsOf(device.needed), (Units{5, 6}));
    EXPECT_EQ(UnitsOf(device.missing), Units{});
    EXPECT_EQ(UnitsOf(device.surplus), Units{});
    EXPECT_TRUE(Agrees(device));
}

TEST_F(DeviceStateTest, UnitsInTheTailHaveNoBitAndAreNotMissing) {
    Pinned("tail", {{1023 * kUnit, 3 * kUnit}});
    WriteBitmap({1023});
    EXPECT_EQ(Read().withoutBit, 2U);
    EXPECT_TRUE(Agrees(Read()));
}

TEST_F(DeviceStateTest, TheDriversBitmapIsComparedWhereTheCacheTells) {
    Pinned("a", {{0, 2 * kUnit}});
    WriteBitmap({0, 1});
    EXPECT_EQ(Read().driverLacks.Count(), 0U) << "a mute cache lacks nothing";
    LetTheCacheTell("", std::string("\x05") + std::string(127, '\0'));
    const DeviceState device = Read();
    EXPECT_EQ(UnitsOf(device.driverLacks), Units{1});
    EXPECT_EQ(UnitsOf(device.driverSurplus), Units{2});
    EXPECT_FALSE(Agrees(device));
}

TEST_F(DeviceStateTest, ABitmapFileThatIsTooLongFailsEveryRequest) {
    Pinned("a", {{0, kUnit}});
    WriteFile(mount_ + "/quorcachepinfile.bitmap", "\x01" + std::string(200, '\0'));
    EXPECT_TRUE(Read().fileTooLong);
    EXPECT_FALSE(Agrees(Read()));
    WriteFile(mount_ + "/quorcachepinfile.bitmap", "\x01");
    EXPECT_TRUE(Agrees(Read())) << "a shorter one is the front of the bitmap";
}

TEST_F(DeviceStateTest, WhileAFileCannotBeLookedAtNothingIsUnneeded) {
    const std::string path = Pinned("a", {{0, kUnit}});
    WriteBitmap({0, 5});
    EXPECT_EQ(Read().uncertain, "");
    g_platform.mappings[InodeOf(path)][0].result = -1;
    EXPECT_EQ(Read().uncertain,
              path +
                  " cannot be looked at (its extents cannot be read), so no unit can be said to "
                  "be unneeded");
}

TEST_F(DeviceStateTest, AllMountPathsOfADeviceAreOneDevice) {
    Pinned("a", {{0, kUnit}});
    const std::string again = MountAgain();
    Place(Make("b"), {{7 * kUnit, kUnit}});
    state_.pinned[again].push_back({"b", InodeOf(mount_ + "/b")});
    state_.queue.push_back({"3", "reloadPinBlocks", again, ""});
    WriteBitmap({0, 5, 7});
    for (const std::string& only : {std::string(), mount_, again}) {
        const std::vector<DeviceState> devices = ReadDevices(state_, volumes_, only);
        ASSERT_EQ(devices.size(), 1U) << only;
        EXPECT_EQ(devices[0].mounts.size(), 2U);
        EXPECT_EQ(devices[0].listed.size(), 2U);
        EXPECT_EQ(UnitsOf(devices[0].surplus), Units{5});
        EXPECT_EQ(devices[0].requests, 1U);
    }
    EXPECT_NE(FindListed(Read(), again, InodeOf(mount_ + "/b")), nullptr);
    EXPECT_EQ(FindListed(Read(), mount_, InodeOf(mount_ + "/b")), nullptr);
}

TEST_F(DeviceStateTest, WhatWasPinnedWhereTheDeviceWasMountedBeforeIsNeeded) {
    const std::string path = Make("a");
    Place(path, {{2 * kUnit, kUnit}});
    Make("elsewhere");
    state_.pinned["/nowhere/pool9"] = {
        {"a", InodeOf(path)}, {"b", InodeOf(mount_ + "/elsewhere")}, {"c", 1}};
    WriteBitmap({2, 3});
    const DeviceState device = Read();
    ASSERT_EQ(device.listed.size(), 1U) << "names and numbers that do not fit mean other files";
    EXPECT_EQ(device.listed[0].mountPath, "/nowhere/pool9");
    EXPECT_EQ(UnitsOf(device.surplus), Units{3});
    EXPECT_EQ(device.uncertain,
              "files listed under /nowhere/pool9 lie here, and 2 others listed there may have been "
              "renamed, so no unit can be said to be unneeded");
    WriteBitmap({});
    EXPECT_EQ(UnitsOf(Read().missing), Units{}) << "the volume may be another one, made like it";
    EXPECT_EQ(UnmountedPaths(state_, volumes_), std::vector<std::string>{"/nowhere/pool9"});
}

TEST_F(DeviceStateTest, AFormerListSaysNothingOfADeviceThatHasAllOrNoneOfItsFiles) {
    const std::string path = Make("a");
    Place(path, {{2 * kUnit, kUnit}});
    Make("elsewhere");
    WriteBitmap({2, 3});
    state_.pinned["/nowhere/pool8"] = {{"a", InodeOf(path)}};
    state_.pinned["/nowhere/pool9"] = {{"b", InodeOf(mount_ + "/elsewhere")}, {"a", 1}};
    EXPECT_EQ(Read().uncertain, "");
    EXPECT_EQ(UnitsOf(Read().surplus), Units{3});
    state_.pinned["/nowhere/pool8"].push_back({"gone", 5});
    EXPECT_NE(Read().uncertain, "");
}

TEST_F(DeviceStateTest, OnlyDevicesWithPinsOrBitsAreRead) {
    EXPECT_TRUE(ReadDevices(state_, volumes_).empty());
    EXPECT_EQ(ReadDevices(state_, volumes_, mount_).size(), 1U) << "asked for by name";
    WriteBitmap({4});
    ASSERT_EQ(ReadDevices(state_, volumes_).size(), 1U);
    EXPECT_EQ(UnitsOf(ReadDevices(state_, volumes_)[0].surplus), Units{4});
}

class RepinTest : public PinsTest {
  protected:
    using Names = std::vector<std::string>;

    // A pinned file, as one that is to be unpinned.
    FileRef Leaving(const std::string& relative, const Extents& extents) {
        FileRef file = File(relative, extents);
        List(relative);
        return file;
    }
    Names Repinned(const std::vector<FileRef>& leaving) {
        Names names;
        for (const FileRef& file : FilesToRepin(ReadDevices(state_, volumes_), leaving)) {
            names.push_back(file.relative);
        }
        return names;
    }
};

TEST_F(RepinTest, NeighboursInAUnitArePinnedAgain) {
    const FileRef a = Leaving("a", {{0, 8}, {5 * kUnit, kUnit}});
    Pinned("b", {{8, 8}});
    Pinned("c", {{kUnit, kUnit}});
    Pinned("d", {{4 * kUnit, kUnit + 1}});
    EXPECT_EQ(Repinned({a}), (Names{"b", "d"}));
}

TEST_F(RepinTest, WhatIsUnpinnedTooIsNot) {
    const FileRef a = Leaving("a", {{0, 8}});
    const FileRef b = Leaving("b", {{8, 8}});
    EXPECT_EQ(Repinned({a, b}), Names());
}

TEST_F(RepinTest, WhatIsNotAtItsPathIsNot) {
    const FileRef a = Leaving("a", {{0, 8}});
    const std::string gone = Pinned("gone", {{8, 8}});
    const std::string replaced = Pinned("replaced", {{16, 8}});
    unlink(gone.c_str());
    Place(Make("new"), {{24, 8}});
    rename((mount_ + "/new").c_str(), replaced.c_str());
    EXPECT_EQ(Repinned({a}), Names());
}

TEST_F(RepinTest, WhatIsQueuedToBePinnedIsPinnedAgainToo) {
    const FileRef a = Leaving("a", {{0, 8}});
    Place(Make("next"), {{16, 8}});
    Queue("next");
    EXPECT_EQ(Repinned({a}), (Names{"next"}));
}

TEST_F(RepinTest, TheOtherMountPathKeepsItsEntryOfTheSameFile) {
    const std::string again = MountAgain();
    const FileRef a = Leaving("a", {{0, 8}});
    state_.pinned[again].push_back({"a", a.inode});
    const std::vector<FileRef> files = FilesToRepin(ReadDevices(state_, volumes_), {a});
    ASSERT_EQ(files.size(), 1U);
    EXPECT_EQ(files[0].volume->mountPath, again);
}

}  // namespace

}  // namespace client
