// SPDX-License-Identifier: MIT
// libquordataverifier for plain Linux: the device that a path lies on, and a file's extents there.
#include "platform/quordataverifier.h"

#include <errno.h>
#include <linux/fs.h>
#include <string.h>
#include <sys/ioctl.h>
#include <sys/stat.h>

#include <algorithm>

#include "platform/linux/file_extents.h"
#include "platform/linux/inode_lookup.h"
#include "platform/linux/mount_table.h"
#include "platform/linux/patience.h"
#include "platform/linux/report.h"
#include "platform/linux/unique_fd.h"

using namespace stand_in;

namespace stand_in {
const char* const kLibraryName = "libquordataverifier";
}

namespace {

constexpr int kLookupFailed = -1;
constexpr int kNoDevice = 1;

enum class FileSystemType { kExt = 1, kXfs = 2 };

// A mounted ext2, ext3, ext4 or XFS: their FIEMAP gives places on the block device.
class MountedDevice : public FileSystemDevice {
  public:
    MountedDevice(dev_t number, FileSystemType type) : number_(number), type_(type) {}

    int GetType() const override { return static_cast<int>(type_); }

    int GetMappingTable(const std::string& directory, unsigned long inode, int /*flags*/,
                        FileMappingTable& table) override {
        std::string name;
        const UniqueFd file(
            OpenFileByInode(directory, number_, static_cast<uint32_t>(inode), name));
        struct stat status = {};
        FileMappingTable read;
        read.path = directory + "/" + name;
        if (!file.Valid() || !ReadFileExtents(file.Get(), read.path, read.entries)) {
            return -1;
        }
        int blockSize = 0;
        if (fstat(file.Get(), &status) != 0 || ioctl(file.Get(), FIGETBSZ, &blockSize) != 0) {
            Report("file %s cannot be examined: %s", read.path.c_str(), strerror(errno));
            return -1;
        }
        read.fileSize = static_cast<uint64_t>(status.st_size);
        read.blockSize = static_cast<uint32_t>(blockSize);
        table = std::move(read);
        return 0;
    }

  private:
    const dev_t number_;
    const FileSystemType type_;
};

// The device object for a device that carries a file system of this type; null when its extents are
// not places on the device.
FileSystemDevice* NewDevice(const std::string& devicePath, dev_t number,
                            const std::string& fsType) {
    if (fsType == "ext2" || fsType == "ext3" || fsType == "ext4") {
        return new MountedDevice(number, FileSystemType::kExt);
    }
    if (fsType == "xfs") {
        return new MountedDevice(number, FileSystemType::kXfs);
    }
    Report("files on %s cannot be mapped: %s does not tell places on the device (ext4 and xfs do)",
           devicePath.c_str(), fsType.c_str());
    return nullptr;
}

}  // namespace

int FileSystemDevice::GetDevicePath(const std::string& path, std::string& devicePath,
                                    bool /*flag*/) {
    uint64_t id = 0;
    if (!Patience().Try([&] { return FindMountId(path, id); })) {
        Report("mount of %s cannot be found: %s", path.c_str(), strerror(errno));
        return kLookupFailed;
    }
    const MountList mounts = ReadMounts();
    if (!mounts) {
        return kLookupFailed;
    }
    const auto mount = std::find_if(mounts->begin(), mounts->end(),
                                    [&](const Mount& candidate) { return candidate.id == id; });
    if (mount == mounts->end()) {
        Report("mount of %s is not in the list of mounts", path.c_str());
        return kLookupFailed;
    }
    if (BlockDeviceNumber(*mount) == 0) {
        Report("%s lies on a file system without a block device (%s)", path.c_str(),
               mount->fsType.c_str());
        return kNoDevice;
    }
    BlockDevice device;
    if (!FindBlockDevice(*mount, device)) {
        Report("the block device of %s has no node in /dev", path.c_str());
        return kLookupFailed;
    }
    devicePath = device.path;
    return 0;
}

FileSystemDevice* FileSystemDeviceCreater::Create(const std::string& devicePath) {
    struct stat status = {};
    if (stat(devicePath.c_str(), &status) != 0) {
        Report("%s cannot be examined: %s", devicePath.c_str(), strerror(errno));
        return nullptr;
    }
    if (!S_ISBLK(status.st_mode)) {
        Report("%s is not a block device", devicePath.c_str());
        return nullptr;
    }
    const MountList mounts = ReadMounts();
    if (!mounts) {
        return nullptr;
    }
    for (const Mount& mount : *mounts) {
        if (BlockDeviceNumber(mount) == status.st_rdev) {
            return NewDevice(devicePath, status.st_rdev, mount.fsType);
        }
    }
    Report("block device %s is not mounted", devicePath.c_str());
    return nullptr;
}
