// SPDX-License-Identifier: MIT
#include "softcache/storage.h"

#include <errno.h>
#include <fcntl.h>
#include <limits.h>
#include <linux/fs.h>
#include <stdlib.h>
#include <string.h>
#include <sys/file.h>
#include <sys/ioctl.h>
#include <sys/stat.h>

#include <charconv>

#include "softcache/unit_table.h"

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

// Space that is allocated now cannot be missing later, when it would cost the cache slot by slot.
static const char* SizeSsdFile(int fd, uint64_t size) {
    if (ftruncate(fd, static_cast<off_t>(size)) != 0) {
        return strerror(errno);
    }
    if (fallocate(fd, 0, 0, static_cast<off_t>(size)) != 0 && errno != EOPNOTSUPP) {
        const char* wrong = strerror(errno);
        return ftruncate(fd, 0) == 0 ? wrong : "no space, and it cannot be given back";
    }
    return nullptr;
}

std::string OpenSsd(const std::string& path, uint64_t size, OwnedFd& ssd) {
    OwnedFd fd(open(path.c_str(), OpenFlags(path, O_CREAT), 0600));
    uint64_t found = 0;
    const char* wrong = fd.valid() ? ClaimAndMeasure(fd.get(), found) : strerror(errno);
    if (wrong != nullptr) {
        return Failure("ssd", path, wrong);
    }
    if (!IsBlockDevice(path)) {
        wrong = SizeSsdFile(fd.get(), size);
    } else if (found < size) {
        wrong = "smaller than the size asked for";
    }
    if (wrong != nullptr) {
        return Failure("ssd", path, wrong);
    }
    ssd = std::move(fd);
    return "";
}

std::string WholeSsd(const std::string& path, uint64_t& size) {
    const OwnedFd fd(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_LARGEFILE));
    if (!fd.valid()) {
        return Failure("ssd", path, strerror(errno));
    }
    size = SizeOf(fd.get()) / kUnitSize * kUnitSize;
    return size > 0 ? "" : Failure("ssd", path, "has no room for a cache; name a size");
}

std::string DefaultMountPoint(const std::string& name) {
    return "/run/quorsoftcache/mount/" + name;
}

static std::string MountPointFailure(const std::string& path, int error) {
    if (error == ENOTCONN) {
        return Failure("mount point", path,
                       "holds the dead mount of an earlier cache; take it away with umount");
    }
    return Failure("mount point", path, strerror(error));
}

std::string CheckMountPoint(const std::string& path, std::string& absolute) {
    char resolved[PATH_MAX];
    if (realpath(path.c_str(), resolved) == nullptr) {
        return MountPointFailure(path, errno);
    }
    struct statx status {};
    if (statx(AT_FDCWD, resolved, AT_STATX_FORCE_SYNC, STATX_BASIC_STATS, &status) != 0) {
        return MountPointFailure(path, errno);
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
