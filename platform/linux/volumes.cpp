// SPDX-License-Identifier: MIT
#include "platform/linux/volumes.h"

#include <blkid/blkid.h>
#include <errno.h>
#include <string.h>

#include <memory>

#include "platform/linux/report.h"
#include "platform/quorstoragecore.h"

namespace {

constexpr int kAmbiguous = -2;  // of libblkid's safe probe

struct ProbeDeleter {
    void operator()(blkid_probe probe) const { blkid_free_probe(probe); }
};
using Probe = std::unique_ptr<blkid_struct_probe, ProbeDeleter>;

// Lets the probe look for nothing but the file system that is mounted: what an earlier use left on
// the device must not make the answer doubtful.
void LookOnlyFor(blkid_probe probe, const std::string& fsType) {
    char ext2[] = "ext2", ext3[] = "ext3", ext4[] = "ext4", xfs[] = "xfs", btrfs[] = "btrfs";
    char* extFamily[] = {ext2, ext3, ext4, nullptr};  // one driver mounts the three
    char* onlyXfs[] = {xfs, nullptr};
    char* onlyBtrfs[] = {btrfs, nullptr};
    if (fsType == "ext2" || fsType == "ext3" || fsType == "ext4") {
        blkid_probe_filter_superblocks_type(probe, BLKID_FLTR_ONLYIN, extFamily);
    } else if (fsType == "xfs") {
        blkid_probe_filter_superblocks_type(probe, BLKID_FLTR_ONLYIN, onlyXfs);
    } else if (fsType == "btrfs") {
        blkid_probe_filter_superblocks_type(probe, BLKID_FLTR_ONLYIN, onlyBtrfs);
    } else {
        blkid_probe_filter_superblocks_usage(probe, BLKID_FLTR_ONLYIN, BLKID_USAGE_FILESYSTEM);
    }
}

// The UUID of the file system on the device; empty when it has none. When it cannot be told,
// `problem` says why.
std::string ProbeUuid(const std::string& devicePath, const std::string& fsType,
                      std::string& problem) {
    const Probe probe(blkid_new_probe_from_filename(devicePath.c_str()));
    if (!probe) {
        problem = strerror(errno);
        return "";
    }
    blkid_probe_enable_superblocks(probe.get(), 1);
    blkid_probe_set_superblocks_flags(probe.get(), BLKID_SUBLKS_UUID);
    LookOnlyFor(probe.get(), fsType);
    const int result = blkid_do_safeprobe(probe.get());
    if (result < 0) {
        problem = result == kAmbiguous ? "several file systems show" : "reading failed";
        return "";
    }
    const char* uuid = nullptr;
    if (result != 0 || blkid_probe_lookup_value(probe.get(), "UUID", &uuid, nullptr) != 0) {
        return "";
    }
    return uuid;
}

// Whether the mount is one of the whole of a block device's file system, and its mount point leads
// to it and not to one that covers it.
bool IsVolume(const Mount& mount) {
    uint64_t id = 0;
    return mount.root == "/" && BlockDeviceNumber(mount) != 0 &&
           FindMountId(mount.mountPoint, id) && id == mount.id;
}

// Completes the volume of the mount. Returns false when it has no UUID or must be left out, which
// `problem` then explains; `known` are the volumes before it.
bool ToVolume(const Mount& mount, const std::vector<Volume>& known, Volume& volume,
              std::string& problem) {
    if (mount.mountPoint.size() >= sizeof(SpaceInfo::referencePath)) {
        problem = Format("its path is longer than %zu bytes", sizeof(SpaceInfo::referencePath) - 1);
        return false;
    }
    volume.mountPoint = mount.mountPoint;
    volume.fileSystem = mount.fileSystem;
    if (!FindBlockDevice(mount, volume.device)) {
        problem = "its block device has no node in /dev";
        return false;
    }
    for (const Volume& other : known) {
        if (other.fileSystem == volume.fileSystem) {  // mounted twice
            volume.uuid = other.uuid;
            return true;
        }
    }
    volume.uuid = ProbeUuid(volume.device.path, mount.fsType, problem);
    if (!problem.empty()) {
        problem = "its UUID cannot be read from " + volume.device.path + ": " + problem;
        return false;
    }
    for (const Volume& other : known) {
        if (!volume.uuid.empty() && other.uuid == volume.uuid) {
            problem = Format("its UUID %s on %s is that of %s on %s", volume.uuid.c_str(),
                             volume.device.path.c_str(), other.mountPoint.c_str(),
                             other.device.path.c_str());
            return false;
        }
    }
    return !volume.uuid.empty();
}

}  // namespace

bool ListVolumes(std::vector<Volume>& volumes) {
    static StandingLines& standing = *new StandingLines;  // may be in use while the process exits
    std::vector<Mount> mounts;
    if (!ReadMounts(mounts)) {
        return false;
    }
    std::vector<Volume> listed;
    std::vector<std::string> lines;
    for (const Mount& mount : mounts) {
        Volume volume;
        std::string problem;
        if (!IsVolume(mount)) {
            continue;
        }
        if (ToVolume(mount, listed, volume, problem)) {
            listed.push_back(volume);
        } else if (!problem.empty()) {
            lines.push_back("volume " + mount.mountPoint + " is left out: " + problem);
        }
    }
    standing.Send(lines);
    volumes = std::move(listed);
    return true;
}
