// SPDX-License-Identifier: MIT
// Which block device holds a path, and which devices can be mapped.
#include <string.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <memory>

#include "platform/quordataverifier.h"
#include "tests/unit/platform/scratch.h"

namespace {

class DevicePathTest : public ScratchTest {
  protected:
    // The device that holds the path, or the result that told of none as "= result".
    static std::string DeviceOf(const std::string& path) {
        std::string device = "untouched";
        const int result = FileSystemDevice::GetDevicePath(path, device, false);
        if (result == -1 || result == 1) {
            EXPECT_EQ(device, "untouched");
            return "= " + std::to_string(result);
        }
        return device;
    }
    static std::string OnlyLine() {
        const std::vector<std::string> lines = LogLines();
        ClearLog();
        return lines.size() == 1 ? lines[0] : std::to_string(lines.size()) + " lines";
    }
    static bool CanBeMapped(const std::string& device) {
        const std::unique_ptr<FileSystemDevice> made(FileSystemDeviceCreater::Create(device));
        return made != nullptr;
    }
};

TEST_F(DevicePathTest, IsThatOfTheMountThatHoldsThePath) {
    const std::string outer = MountImage(MakeImage("ext4", "a.img"), "outer");
    const std::string outerDevice = SourceOf(outer);
    const std::string inner = MountImage(MakeImage("xfs", "b.img"), "outer/inner volume");
    const std::string innerDevice = SourceOf(inner);
    ASSERT_NE(outerDevice, innerDevice);
    ASSERT_EQ(mkdir((outer + "/directory").c_str(), 0755), 0);
    WriteFile(inner + "/file", "x");
    ASSERT_EQ(symlink(inner.c_str(), (outer + "/link").c_str()), 0);

    EXPECT_EQ(DeviceOf(outer), outerDevice);
    EXPECT_EQ(DeviceOf(outer + "/"), outerDevice);
    EXPECT_EQ(DeviceOf(outer + "/directory"), outerDevice);
    EXPECT_EQ(DeviceOf(inner), innerDevice);
    EXPECT_EQ(DeviceOf(inner + "/file"), innerDevice);
    EXPECT_EQ(DeviceOf(inner + "/../directory"), outerDevice);
    EXPECT_EQ(DeviceOf(outer + "/link/file"), innerDevice);
    EXPECT_TRUE(CanBeMapped(outerDevice));
    EXPECT_TRUE(CanBeMapped(innerDevice));
    EXPECT_TRUE(LogLines().empty());
}

TEST_F(DevicePathTest, IsThatOfTheMountOnTop) {
    const std::string below = MountImage(MakeImage("ext4", "a.img"), "volume");
    const std::string belowDevice = SourceOf(below);
    RunProgram({"mount", "-o", "loop", MakeImage("ext4", "b.img"), below});
    const std::string device = DeviceOf(below);
    struct stat status = {}, node = {};
    ASSERT_EQ(stat(below.c_str(), &status), 0);
    ASSERT_EQ(stat(device.c_str(), &node), 0);
    EXPECT_NE(device, belowDevice);
    EXPECT_EQ(node.st_rdev, status.st_dev);
    ASSERT_EQ(mount("cover", below.c_str(), "tmpfs", 0, nullptr), 0);
    EXPECT_EQ(DeviceOf(below), "= 1");
}

TEST_F(DevicePathTest, MountPointsMayHoldAnyCharacter) {
    const std::string image = MakeImage("ext4", "a.img");
    for (const char* const name :
         {"with blank", "tab\there", "back\\slash", "new\nline", "\\040"}) {
        const std::string mountPoint = MountImage(image, name);
        struct stat status = {}, node = {};
        ASSERT_EQ(stat(mountPoint.c_str(), &status), 0);
        ASSERT_EQ(stat(DeviceOf(mountPoint).c_str(), &node), 0) << name;
        EXPECT_EQ(node.st_rdev, status.st_dev) << name;
        ASSERT_EQ(umount(mountPoint.c_str()), 0);
    }
}

TEST_F(DevicePathTest, IsFoundWhenTheSourceNamesAnotherNode) {
    const std::string volume = MountImage(MakeImage("ext4", "a.img"), "volume");
    const std::string device = SourceOf(volume);
    struct stat status = {};
    ASSERT_EQ(stat(volume.c_str(), &status), 0);
    ASSERT_EQ(mknod("/mnt/node", S_IFBLK | 0600, status.st_dev), 0);
    const std::string other = MakeDirectory("other");
    ASSERT_EQ(mount("/mnt/node", other.c_str(), "ext4", 0, nullptr), 0);
    EXPECT_EQ(DeviceOf(other), "/mnt/node");
    ASSERT_EQ(unlink("/mnt/node"), 0);
    EXPECT_EQ(DeviceOf(other), device);  // by its number
}

TEST_F(DevicePathTest, AFileSystemWithoutBlockDeviceIsToldApart) {
    const std::string volume = MountImage(MakeImage("ext4", "a.img"), "volume");
    const std::string memory = MakeDirectory("memory");
    ASSERT_EQ(mount(SourceOf(volume).c_str(), memory.c_str(), "tmpfs", 0, nullptr), 0);
    EXPECT_EQ(DeviceOf(memory), "= 1");
    EXPECT_EQ(OnlyLine(), "libquordataverifier: " + memory +
                              " lies on a file system without a block device (tmpfs)");
    EXPECT_EQ(DeviceOf("/proc/self"), "= 1");
    EXPECT_EQ(OnlyLine(),
              "libquordataverifier: /proc/self lies on a file system without a block "
              "device (proc)");

    for (const char* const name : {"volume/lower", "volume/upper", "volume/work", "overlay"}) {
        MakeDirectory(name);
    }
    ASSERT_EQ(mount("over", "/mnt/overlay", "overlay", 0,
                    "lowerdir=/mnt/volume/lower,upperdir=/mnt/volume/upper,"
                    "workdir=/mnt/volume/work"),
              0);
    EXPECT_EQ(DeviceOf("/mnt/overlay"), "= 1");
    EXPECT_EQ(OnlyLine(),
              "libquordataverifier: /mnt/overlay lies on a file system without a block "
              "device (overlay)");
}

TEST_F(DevicePathTest, APathThatIsNotThereFails) {
    testing::internal::CaptureStdout();
    EXPECT_EQ(DeviceOf("/mnt/missing"), "= -1");
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
    EXPECT_EQ(OnlyLine(),
              "libquordataverifier: mount of /mnt/missing cannot be found: No such file "
              "or directory");
    EXPECT_EQ(DeviceOf(""), "= -1");
}

TEST_F(DevicePathTest, BtrfsHasADeviceThatCannotBeMapped) {
    const std::string volume = MountImage(MakeImage("btrfs", "a.img"), "volume");
    const std::string device = SourceOf(volume);
    EXPECT_EQ(DeviceOf(volume), device);
    EXPECT_TRUE(LogLines().empty());
    EXPECT_FALSE(CanBeMapped(device));
    EXPECT_EQ(OnlyLine(), "libquordataverifier: files on " + device +
                              " cannot be mapped: btrfs does not tell places on the device (ext4 "
                              "and xfs do)");
}

TEST_F(DevicePathTest, OnlyAMountedBlockDeviceCanBeMapped) {
    const std::string volume = MountImage(MakeImage("ext4", "a.img"), "volume");
    EXPECT_FALSE(CanBeMapped("/mnt/a.img"));
    EXPECT_EQ(OnlyLine(), "libquordataverifier: /mnt/a.img is not a block device");
    EXPECT_FALSE(CanBeMapped("/dev/null"));
    EXPECT_EQ(OnlyLine(), "libquordataverifier: /dev/null is not a block device");
    EXPECT_FALSE(CanBeMapped(volume));
    EXPECT_EQ(OnlyLine(), "libquordataverifier: /mnt/volume is not a block device");
    EXPECT_FALSE(CanBeMapped("/dev/missing"));
    EXPECT_EQ(OnlyLine(),
              "libquordataverifier: /dev/missing cannot be examined: No such file or directory");
    struct stat status = {};
    ASSERT_EQ(stat(volume.c_str(), &status), 0);
    ASSERT_EQ(mknod("/mnt/node", S_IFBLK | 0600, status.st_dev), 0);
    EXPECT_TRUE(CanBeMapped("/mnt/node"));
    ASSERT_EQ(umount(volume.c_str()), 0);
    EXPECT_FALSE(CanBeMapped("/mnt/node"));
    EXPECT_EQ(OnlyLine(), "libquordataverifier: block device /mnt/node is not mounted");
}

}  // namespace
