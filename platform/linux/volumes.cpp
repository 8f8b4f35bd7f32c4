// SPDX-License-Identifier: MIT
#include "platform/linux/volumes.h"

#include <blkid/blkid.h>
#include <errno.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <memory>
#include <mutex>

#include "platform/linux/change_watch.h"
#include "platform/linux/patience.h"
#include "platform/linux/report.h"
#include "platform/quorstoragecore.h"

namespace stand_in {

namespace {

constexpr int kAmbiguous = -2;  // of libblkid's safe probe
constexpr char kLinksByUuid[] = "/dev/disk/by-uuid";
constexpr int64_t kUntoldMilliseconds = 1000;

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

// Finds the device among the links that udev makes by UUID. Returns false when it is not there.
bool FindUuidLink(dev_t number, std::string& uuid) {
    std::error_code error;
    for (std::filesystem::directory_iterator it(kLinksByUuid, error), end; !error && it != end;
         it.increment(error)) {
        struct stat status = {};
        if (stat(it->path().c_str(), &status) == 0 && S_ISBLK(status.st_mode) &&
            status.st_rdev == number) {
            uuid = it->path().filename();
            return true;
        }
    }
    return false;
}

// Stores the UUID of the file system on the device; empty when it has none. Returns false when it
// cannot be read: errno and `problem` say why.
bool ProbeUuid(const BlockDevice& device, const std::string& fsType, std::string& uuid,
               std::string& problem) {
    const Probe probe(blkid_new_probe_from_filename(device.path.c_str()));
    if (!probe) {
        const int error = errno;
        // Who is not root must not read devices, and may know what everybody may: what a command
        // shows. The service runs as root.
        if (error == EACCES && geteuid() != 0 && FindUuidLink(device.number, uuid)) {
            return true;
        }
        errno = error;
        problem = strerror(errno);
        return false;
    }
    blkid_probe_enable_superblocks(probe.get(), 1);
    blkid_probe_set_superblocks_flags(probe.get(), BLKID_SUBLKS_UUID);
    LookOnlyFor(probe.get(), fsType);
    const int result = blkid_do_safeprobe(probe.get());
    if (result < 0) {
        problem = result == kAmbiguous ? "several file systems show" : "reading failed";
        errno = EIO;
        return false;
    }
    const char* found = nullptr;
    const bool has =
        result == 0 && blkid_probe_lookup_value(probe.get(), "UUID", &found, nullptr) == 0;
    uuid = has ? found : "";
    return true;
}

// Whether what failed with this errno says nothing of what is there. (A device that must not be
// opened, as in a container that sees the mounts of its host, is no such case.)
bool MayComeBack(int error) {
    return MayPass(error) || error == EIO;
}

// A volume as it was listed, and the mount that it was.
struct KnownVolume {
    uint64_t mountId;
    Volume volume;
};

// One look at all mounts.
class Look {
  public:
    // `known` is what the look before found: it answers for a mount that is still there and cannot
    // be examined for the moment.
    explicit Look(const std::vector<KnownVolume>& known) : known_(known) {}

    void At(const Mount& mount) {
        Volume volume;
        std::string problem;
        if (!IsVolume(mount)) {
            return;
        }
        if (Complete(mount, volume, problem)) {
            found.push_back({mount.id, volume});
        } else if (!problem.empty()) {
            Say(mount, "is left out", problem);
        }
    }

    std::vector<KnownVolume> found;
    bool complete = true;  // false: a mount was left out that may be a volume
    bool settled = true;   // false: something could not be examined, and may be the next time
    std::vector<std::string> lines;

  private:
    const Volume* Known(const Mount& mount) const {
        for (const KnownVolume& known : known_) {
            if (known.mountId == mount.id && known.volume.mountPoint == mount.mountPoint &&
                known.volume.fileSystem == mount.fileSystem) {
                return &known.volume;
            }
        }
        return nullptr;
    }

    void Say(const Mount& mount, const char* outcome, const std::string& why) {
        lines.push_back("volume " + mount.mountPoint + " " + outcome + ": " + why);
    }

    // Whether the mount is one of the whole of a block device's file system, and its mount point
    // leads to it and not to one that covers it.
    bool IsVolume(const Mount& mount) {
        if (mount.root != "/" || BlockDeviceNumber(mount) == 0) {
            return false;
        }
        uint64_t id = 0;
        if (patience_.Try([&] { return FindMountId(mount.mountPoint, id); })) {
            return id == mount.id;
        }
        if (!MayComeBack(errno)) {
            return false;  // the path leads nowhere
        }
        const bool counts = Known(mount) != nullptr;
        settled = false;
        Say(mount, counts ? "counts as it was found before" : "is left out",
            std::string("its mount point cannot be examined: ") + strerror(errno));
        complete = complete && counts;
        return counts;
    }

    // Completes the volume of the mount. Returns false when it has no UUID or must be left out,
    // which `problem` then explains.
    bool Complete(const Mount& mount, Volume& volume, std::string& problem) {
        if (mount.mountPoint.size() >= sizeof(SpaceInfo::referencePath)) {
            problem =
                Format("its path is longer than %zu bytes", sizeof(SpaceInfo::referencePath) - 1);
            return false;
        }
        volume.mountPoint = mount.mountPoint;
        volume.fileSystem = mount.fileSystem;
        if (!FindBlockDevice(mount, volume.device)) {
            problem = "its block device has no node in /dev";
            return false;
        }
        for (const KnownVolume& other : found) {
            if (other.volume.fileSystem == volume.fileSystem) {  // mounted twice
                volume.uuid = other.volume.uuid;
                return true;
            }
        }
        return FindUuid(mount, volume, problem) && !volume.uuid.empty() &&
               IsNoCopy(volume, problem);
    }

    bool FindUuid(const Mount& mount, Volume& volume, std::string& problem) {
        std::string why;
        if (patience_.Try(
                [&] { return ProbeUuid(volume.device, mount.fsType, volume.uuid, why); })) {
            return true;
        }
        const bool mayComeBack = MayComeBack(errno);
        settled = settled && !mayComeBack;
        why = "its UUID cannot be read from " + volume.device.path + ": " + why;
        if (const Volume* const known = Known(mount)) {
            volume.uuid = known->uuid;
            Say(mount, "keeps the UUID that it had", why);
            return true;
        }
        problem = why;
        complete = complete && !mayComeBack;
        return false;
    }

    // Whether no volume before it has its UUID.
    bool IsNoCopy(const Volume& volume, std::string& problem) const {
        for (const KnownVolume& known : found) {
            const Volume& other = known.volume;
            if (other.uuid == volume.uuid) {
                problem = Format("its UUID %s on %s is that of %s on %s", volume.uuid.c_str(),
                                 volume.device.path.c_str(), other.mountPoint.c_str(),
                                 other.device.path.c_str());
                return false;
            }
        }
        return true;
    }

    const std::vector<KnownVolume>& known_;
    Patience patience_;
};

// What the last listing found, and what tells whether it still holds.
struct Memory {
    std::mutex mutex;
    StandingLines standing;
    std::vector<KnownVolume> known;
    MountList mounts;
    std::shared_ptr<const VolumeListing> listing;  // null: it must be made anew
    Lifetime age{kUntoldMilliseconds};
};

}  // namespace

std::shared_ptr<const VolumeListing> ListVolumes() {
    static Memory& memory = *new Memory;  // may be in use while the process exits
    const std::lock_guard<std::mutex> lock(memory.mutex);
    const MountList mounts = ReadMounts();
    if (!mounts) {
        return nullptr;
    }
    if (memory.listing && mounts == memory.mounts && !memory.age.Over()) {
        return memory.listing;
    }
    Look look(memory.known);
    for (const Mount& mount : *mounts) {
        look.At(mount);
    }
    memory.standing.Send(look.lines);
    auto listing = std::make_shared<VolumeListing>();
    listing->complete = look.complete;
    for (const KnownVolume& volume : look.found) {
        listing->volumes.push_back(volume.volume);
    }
    memory.known = std::move(look.found);
    memory.mounts = mounts;
    memory.listing = look.settled ? listing : nullptr;
    memory.age.Start();
    return listing;
}

}  // namespace stand_in
