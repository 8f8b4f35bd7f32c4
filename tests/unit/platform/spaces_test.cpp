// SPDX-License-Identifier: MIT
// The list of spaces against real mounts.
#include <stdlib.h>
#include <string.h>
#include <sys/mount.h>
#include <sys/stat.h>

#include <memory>

#include "platform/quorstoragecore.h"
#include "tests/unit/platform/scratch.h"

namespace {

constexpr char kUuidA[] = "0a0a0a0a-1111-4222-8333-0123456789ab";
constexpr char kUuidB[] = "0b0b0b0b-1111-4222-8333-0123456789ab";
constexpr char kUuidC[] = "0c0c0c0c-1111-4222-8333-0123456789ab";

using Spaces = std::vector<std::pair<std::string, std::string>>;  // path, UUID

// The spaces in the scratch directory; the machine may have more.
Spaces ListSpaces() {
    SpaceInfo* list = nullptr;
    EXPECT_EQ(QUORSpaceInfoEnum(1, &list), 0);
    Spaces spaces;
    for (const SpaceInfo* space = list; space != nullptr; space = space->next) {
        const std::unique_ptr<char, decltype(&free)> uuid(QUORSpaceUUIDGet(space), free);
        EXPECT_NE(uuid, nullptr) << space->referencePath;
        if (uuid && strncmp(space->referencePath, "/mnt/", 5) == 0) {
            spaces.emplace_back(space->referencePath, uuid.get());
        }
    }
    QUORSpaceInfoFree(list);
    return spaces;
}

class SpacesTest : public ScratchTest {
  protected:
    void SetUp() override {
        ScratchTest::SetUp();
        if (!IsSkipped()) {
            ListSpaces();  // has said by now what there is to say of the machine's own volumes
            ClearLog();
        }
    }
};

TEST_F(SpacesTest, ListsMountedVolumesWithTheirUuidsInTheOrderOfMounting) {
    const std::string b =
        MountImage(MakeImage("xfs", "b.img", {"-m", std::string("uuid=") + kUuidB}), "zz");
    const std::string a = MountImage(MakeImage("ext4", "a.img", {"-U", kUuidA}), "aa");
    const std::string c = MountImage(MakeImage("btrfs", "c.img", {"-U", kUuidC}), "mm");
    EXPECT_EQ(ListSpaces(), (Spaces{{b, kUuidB}, {a, kUuidA}, {c, kUuidC}}));
    EXPECT_EQ(umount(a.c_str()), 0);
    EXPECT_EQ(ListSpaces(), (Spaces{{b, kUuidB}, {c, kUuidC}}));  // told afresh
    EXPECT_TRUE(LogLines().empty());
}

TEST_F(SpacesTest, MountPointsAreListedLetterForLetter) {
    const std::string image = MakeImage("ext4", "a.img", {"-U", kUuidA});
    const char* const names[] = {
        "with blank", "tab\there", "back\\slash", "new\nline", "#hash",
        "\\040",      " edge ",    "%s%n",        "a;b",       "colon:comma,",
        "\xc3\xa4",   "\xff",      "\\",          "quote\"'",  "gone (deleted)",
    };
    for (const char* const name : names) {
        const std::string mountPoint = MountImage(image, name);
        EXPECT_EQ(ListSpaces(), (Spaces{{mountPoint, kUuidA}})) << name;
        ASSERT_EQ(umount(mountPoint.c_str()), 0);
    }
    EXPECT_TRUE(LogLines().empty());
}

TEST_F(SpacesTest, OnlyMountsOfTheWholeFileSystemAreSpaces) {
    const std::string volume = MountImage(MakeImage("ext4", "a.img", {"-U", kUuidA}), "volume");
    const std::string whole = MakeDirectory("whole");
    const std::string part = MakeDirectory("part");
    ASSERT_EQ(mkdir((volume + "/inside").c_str(), 0755), 0);
    ASSERT_EQ(mount(volume.c_str(), whole.c_str(), nullptr, MS_BIND, nullptr), 0);
    ASSERT_EQ(mount((volume + "/inside").c_str(), part.c_str(), nullptr, MS_BIND, nullptr), 0);
    EXPECT_EQ(ListSpaces(), (Spaces{{volume, kUuidA}, {whole, kUuidA}}));
}

TEST_F(SpacesTest, AMountThatAnotherCoversIsNoSpace) {
    const std::string imageA = MakeImage("ext4", "a.img", {"-U", kUuidA});
    const std::string imageB = MakeImage("ext4", "b.img", {"-U", kUuidB});
    const std::string mountPoint = MountImage(imageA, "volume");
    RunProgram({"mount", "-o", "loop", imageB, mountPoint});
    EXPECT_EQ(ListSpaces(), (Spaces{{mountPoint, kUuidB}}));
    ASSERT_EQ(umount(mountPoint.c_str()), 0);
    EXPECT_EQ(ListSpaces(), (Spaces{{mountPoint, kUuidA}}));
}

TEST_F(SpacesTest, AMountBelowACoveredDirectoryIsNoSpace) {
    MakeDirectory("outer");
    MountImage(MakeImage("ext4", "a.img", {"-U", kUuidA}), "outer/volume");
    ASSERT_EQ(ListSpaces().size(), 1u);
    ASSERT_EQ(mount("cover", "/mnt/outer", "tmpfs", 0, nullptr), 0);
    EXPECT_EQ(ListSpaces(), Spaces{});
    ASSERT_EQ(mkdir("/mnt/outer/volume", 0755), 0);  // the path is there, and is another
    EXPECT_EQ(ListSpaces(), Spaces{});
    EXPECT_TRUE(LogLines().empty());
}

TEST_F(SpacesTest, AFileSystemWithoutBlockDeviceIsNoSpaceWhateverItsSource) {
    const std::string volume = MountImage(MakeImage("ext4", "a.img", {"-U", kUuidA}), "volume");
    const std::string memory = MakeDirectory("memory");
    ASSERT_EQ(mount(SourceOf(volume).c_str(), memory.c_str(), "tmpfs", 0, nullptr), 0);
    EXPECT_EQ(ListSpaces(), (Spaces{{volume, kUuidA}}));
}

TEST_F(SpacesTest, APathLongerThanTheFieldIsLeftOutNeverCut) {
    const std::string image = MakeImage("ext4", "a.img", {"-U", kUuidA});
    std::string below = std::string(200, 'a') + "/" + std::string(200, 'b') + "/";
    MakeDirectory(std::string(200, 'a'));
    MakeDirectory(below);
    const size_t used = strlen(kScratch) + 1 + below.size();
    const std::string fits = MountImage(image, below + std::string(511 - used, 'c'));
    ASSERT_EQ(fits.size(), 511u);
    EXPECT_EQ(ListSpaces(), (Spaces{{fits, kUuidA}}));
    EXPECT_TRUE(LogLines().empty());
    ASSERT_EQ(umount(fits.c_str()), 0);

    const std::string longer = MountImage(image, below + std::string(512 - used, 'c'));
    EXPECT_EQ(ListSpaces(), Spaces{});
    EXPECT_EQ(LogLines(),
              (std::vector<std::string>{"libquorstoragecore: volume " + longer +
                                        " is left out: its path is longer than 511 bytes"}));
}

TEST_F(SpacesTest, ADeviceThatCannotBeReadDoesNotSpoilTheOthers) {
    const std::string image = MakeImage("ext4", "lost.img", {"-U", kUuidA});
    const std::string lost = MountImage(image, "lost");
    const std::string good = MountImage(MakeImage("ext4", "good.img", {"-U", kUuidB}), "good");
    const std::string device = SourceOf(lost);
    ASSERT_EQ(truncate(image.c_str(), 0), 0);  // reads beyond the end fail
    RunProgram({"blockdev", "--flushbufs", device});
    const std::vector<std::string> line = {"libquorstoragecore: volume " + lost +
                                           " is left out: its UUID cannot be read from " + device +
                                           ": reading failed"};
    EXPECT_EQ(ListSpaces(), (Spaces{{good, kUuidB}}));
    EXPECT_EQ(LogLines(), line);
    EXPECT_EQ(ListSpaces(), (Spaces{{good, kUuidB}}));
    EXPECT_EQ(LogLines(), line);  // said once as long as it stands
    ASSERT_EQ(umount2(lost.c_str(), MNT_DETACH), 0);
    ListSpaces();
    EXPECT_EQ(LogLines(), line);
}

TEST_F(SpacesTest, ADeviceWithoutANodeDoesNotSpoilTheOthers) {
    const std::string lost = MountImage(MakeImage("ext4", "lost.img", {"-U", kUuidA}), "lost");
    const std::string good = MountImage(MakeImage("ext4", "good.img", {"-U", kUuidB}), "good");
    const std::string device = SourceOf(lost);
    ASSERT_EQ(mount("/dev/null", device.c_str(), nullptr, MS_BIND, nullptr), 0);
    EXPECT_EQ(ListSpaces(), (Spaces{{good, kUuidB}}));
    ASSERT_EQ(umount(device.c_str()), 0);
    const std::vector<std::string> line = {"libquorstoragecore: volume " + lost +
                                           " is left out: its block device has no node in /dev"};
    EXPECT_EQ(LogLines(), line);
    EXPECT_EQ(ListSpaces(), (Spaces{{lost, kUuidA}, {good, kUuidB}}));
    ASSERT_EQ(mount("/dev/null", device.c_str(), nullptr, MS_BIND, nullptr), 0);
    EXPECT_EQ(ListSpaces(), (Spaces{{good, kUuidB}}));
    ASSERT_EQ(umount(device.c_str()), 0);
    EXPECT_EQ(LogLines(), (std::vector<std::string>{line[0], line[0]}));  // it came back
}

TEST_F(SpacesTest, AVolumeWithoutUuidIsLeftOutSilently) {
    const std::string image = MakeImage("ext4", "a.img");
    RunProgram({"tune2fs", "-f", "-O", "^metadata_csum", image});
    RunProgram({"tune2fs", "-f", "-U", "clear", image});
    MountImage(image, "nameless");
    const std::string good = MountImage(MakeImage("ext4", "b.img", {"-U", kUuidB}), "good");
    EXPECT_EQ(ListSpaces(), (Spaces{{good, kUuidB}}));
    EXPECT_TRUE(LogLines().empty());
}

TEST_F(SpacesTest, ACopyOfAVolumeIsNotTakenForIt) {
    const std::string image = MakeImage("ext4", "a.img", {"-U", kUuidA});
    RunProgram({"cp", "--sparse=always", image, "/mnt/copy.img"});
    const std::string volume = MountImage(image, "volume");
    const std::string copy = MountImage("/mnt/copy.img", "copy");
    EXPECT_EQ(ListSpaces(), (Spaces{{volume, kUuidA}}));
    EXPECT_EQ(LogLines(),
              (std::vector<std::string>{
                  "libquorstoragecore: volume " + copy + " is left out: its UUID " + kUuidA +
                  " on " + SourceOf(copy) + " is that of " + volume + " on " + SourceOf(volume)}));
}

TEST_F(SpacesTest, WhatAnEarlierUseLeftOnTheDeviceDoesNotMatter) {
    const std::string image = MakeImage("ext4", "a.img", {"-U", kUuidA});
    // The first bytes of a romfs, where ext4 keeps nothing: without knowing what is mounted, the
    // device's content is ambiguous.
    RunProgram({"sh", "-c", "printf %s -rom1fs- | dd of=" + image + " conv=notrunc status=none"});
    const std::string doubtful =
        RunProgram({"sh", "-c", "blkid -p " + image + " 2>/dev/null || echo $?"});
    ASSERT_EQ(doubtful, "8\n") << "the image is not ambiguous: the test proves nothing";
    const std::string volume = MakeDirectory("volume");
    RunProgram({"mount", "-t", "ext4", "-o", "loop", image, volume});
    EXPECT_EQ(ListSpaces(), (Spaces{{volume, kUuidA}}));
}

TEST_F(SpacesTest, AnUnknownKindFailsAndLeavesTheListAlone) {
    SpaceInfo here = {};
    SpaceInfo* list = &here;
    testing::internal::CaptureStdout();
    EXPECT_LT(QUORSpaceInfoEnum(0, &list), 0);
    EXPECT_LT(QUORSpaceInfoEnum(2, &list), 0);
    EXPECT_EQ(list, &here);
    EXPECT_LT(QUORSpaceInfoEnum(1, nullptr), 0);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
    EXPECT_EQ(QUORSpaceUUIDGet(nullptr), nullptr);
    QUORSpaceInfoFree(nullptr);
}

}  // namespace
