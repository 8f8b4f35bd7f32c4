// SPDX-License-Identifier: MIT
#include "softcache/store/storage.h"

#include <errno.h>
#include <fcntl.h>
#include <limits.h>
#include <linux/fs.h>
#include <mntent.h>
#include <stdlib.h>
#include <string.h>
#include <sys/file.h>
#include <sys/ioctl.h>
#include <sys/mount.h>
#include <sys/stat.h>

#include <charconv>

#include "softcache/store/unit_table.h"

namespace softcache {

bool ParseSize(const std::string& text, uint64_t& bytes) {
    uint64_t number = 0;
    const char* end = text.data() + text.size();
    const auto [rest, error] = std::from_chars(text.data(), end, number);
    if (error != std::errc() || end - rest > 1) {
        return false;
    }
    const char* suffixes = "KMGT";
    const char* suffix = rest == end ? nullptr : strchr(suffixes, *rest);
    if (rest != end && (suffix == nullptr || *suffix == '\0')) {
        return false;
    }
    const unsigned shift =
        suffix == nullptr ? 0 : 10 * (static_cast<unsigned>(suffix - suffixes) + 1);
    if (number > UINT64_MAX >> shift) {
        return false;
    }
    bytes = number << shift;
    return true;
}

std::string WhyNotCacheSize(uint64_t bytes) {
    const std::string what = "ssd size " + std::to_string(bytes);
    if (bytes < kUnitSize) {
        return what + ": less than one unit of " + std::to_string(kUnitSize) + " bytes";
    }
    if (bytes % kUnitSize != 0) {
        return what + ": not a multiple of " + std::to_string(kUnitSize) + " bytes";
    }
    return bytes / kUnitSize < kNoSlot ? "" : what + ": too large";
}

static std::string Failure(const std::string& what, const std::string& path, const char* why) {
    return what + " " + path + ": " + why;
}

// Stores the size of a regular file or block device and makes sure that nobody else works on it.
// A block device is kept from others by the O_EXCL it was opened with.
static const char* ClaimAndMeasure(int fd, uint64_t& size) {
    struct stat status;
    if (fstat(fd, &status) != 0) {
        return strerror(errno);
    }
    if (S_ISBLK(status.st_mode)) {
        return ioctl(fd, BLKGETSIZE64, &size) == 0 ? nullptr : strerror(errno);
    }
    if (!S_ISREG(status.st_mode)) {
        return "neither a regular file nor a block device";
    }
    if (flock(fd, LOCK_EX | LOCK_NB) != 0 && errno == EWOULDBLOCK) {
        return "in use by another cache";
    }
    size = static_cast<uint64_t>(status.st_size);
    return nullptr;
}

static bool IsBlockDevice(const std::string& path) {
    struct stat status;
    return stat(path.c_str(), &status) == 0 && S_ISBLK(status.st_mode);
}

// Without O_CREAT, O_EXCL on a block device means: nobody else, a mount neither.
static int OpenFlags(const std::string& path, int otherwise) {
    const int flags = O_RDWR | O_CLOEXEC | O_NONBLOCK | O_LARGEFILE;
    return flags | (IsBlockDevice(path) ? O_EXCL : otherwise);
}

std::string OpenBacking(const std::string& path, OwnedFd& backing, uint64_t& deviceSize) {
    OwnedFd fd(open(path.c_str(), OpenFlags(path, 0)));
    uint64_t size = 0;
    const char* wrong = fd.valid() ? ClaimAndMeasure(fd.get(), size) : strerror(errno);
    if (wrong == nullptr && size == 0) {
        wrong = "empty";
    }
    if (wrong == nullptr && size / kUnitSize >= kMaxUnits) {
        wrong = "too large";
    }
    if (wrong != nullptr) {
        return Failure("backing", path, wrong);
    }
    backing = std::move(fd);
    deviceSize = size;
    return "";
}

std::string WhyNotTwoFiles(const std::string& backing, const std::string& ssd) {
    struct stat one;
    struct stat other;
    if (stat(backing.c_str(), &one) != 0 || stat(ssd.c_str(), &other) != 0) {
        return "";  // whoever opens them says it
    }
    const bool devices = S_ISBLK(one.st_mode) && S_ISBLK(other.st_mode);
    const bool same = devices ? one.st_rdev == other.st_rdev
                              : one.st_dev == other.st_dev && one.st_ino == other.st_ino;
    return same ? Failure("ssd", ssd, "is the backing, too") : "";
}

// Space that is allocated now cannot be missing later, when it would cost the cache slot by slot.
std::string SizeSsdFile(int fd, uint64_t size) {
    const auto before = static_cast<off_t>(SizeOf(fd));
    if (ftruncate(fd, static_cast<off_t>(size)) != 0) {
        return strerror(errno);
    }
    if (fallocate(fd, 0, 0, static_cast<off_t>(size)) != 0 && errno != EOPNOTSUPP) {
        const char* wrong = strerror(errno);
        return ftruncate(fd, before) == 0 ? wrong : "no space, and it cannot be given back";
    }
    return "";
}

std::string OpenSsd(const std::string& path, OwnedFd& ssd, bool& isBlockDevice) {
    OwnedFd fd(open(path.c_str(), OpenFlags(path, O_CREAT), 0600));
    uint64_t found = 0;
    const char* wrong = fd.valid() ? ClaimAndMeasure(fd.get(), found) : strerror(errno);
    if (wrong != nullptr) {
        return Failure("ssd", path, wrong);
    }
    isBlockDevice = IsBlockDevice(path);
    ssd = std::move(fd);
    return "";
}

// Of a dead mount nothing can be asked but its line among the mounts.
static bool IsMountOf(const std::string& mountPoint, const std::string& name) {
    FILE* mounts = setmntent("/proc/self/mounts", "r");
    if (mounts == nullptr) {
        return false;
    }
    bool is = false;
    while (const mntent* mount = getmntent(mounts)) {  // the last one lies on top
        if (mountPoint == mount->mnt_dir) {
            is = strcmp(mount->mnt_type, "fuse.quorsoftcache") == 0 && name == mount->mnt_fsname;
        }
    }
    endmntent(mounts);
    return is;
}

// The path without links where its last part cannot be looked at.
static std::string ThroughParent(const std::string& path) {
    const std::string whole = path.substr(0, path.find_last_not_of('/') + 1);
    const size_t slash = whole.rfind('/');
    char parent[PATH_MAX];
    const std::string up = slash == std::string::npos ? "." : whole.substr(0, slash + 1);
    return realpath(up.c_str(), parent) == nullptr
               ? path
               : std::string(parent) + "/" + whole.substr(slash + 1);
}

std::string DefaultMountPoint(const std::string& name) {
    return "/run/quorsoftcache/mount/" + name;
}

static std::string MountPointFailure(const std::string& path, int error) {
    if (error == ENOTCONN) {
        return Failure("mount point", path,
                       "holds a dead mount, not of this cache; take it away with umount");
    }
    return Failure("mount point", path, strerror(error));
}

std::string CheckMountPoint(const std::string& path, const std::string& name,
                            std::string& absolute) {
    char resolved[PATH_MAX];
    while (realpath(path.c_str(), resolved) == nullptr) {
        const int error = errno;
        const std::string dead = ThroughParent(path);
        if (error != ENOTCONN || !IsMountOf(dead, name) || umount2(dead.c_str(), MNT_DETACH) != 0) {
            return MountPointFailure(path, error);
        }
    }
    struct statx status {};
    if (statx(AT_FDCWD, resolved, AT_STATX_FORCE_SYNC, STATX_BASIC_STATS, &status) != 0) {
        return errno == ENOTCONN && IsMountOf(resolved, name) && umount2(resolved, MNT_DETACH) == 0
                   ? CheckMountPoint(path, name, absolute)
                   : MountPointFailure(path, errno);
    }
    if (!S_ISDIR(status.stx_mode)) {
        return MountPointFailure(path, ENOTDIR);
    }
    if ((status.stx_attributes & STATX_ATTR_MOUNT_ROOT) != 0) {
        return Failure("mount point", path, "something is mounted there already");
    }
    absolute = resolved;
    return "";
}

std::string AbsolutePath(const std::string& path) {
    char resolved[PATH_MAX];
    return realpath(path.c_str(), resolved) == nullptr ? path : resolved;
}

}  // namespace softcache
