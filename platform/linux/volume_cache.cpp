// SPDX-License-Identifier: MIT
#include "platform/linux/volume_cache.h"

#include <errno.h>
#include <fcntl.h>
#include <linux/loop.h>
#include <linux/major.h>
#include <string.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <fstream>
#include <string>

#include "platform/linux/patience.h"
#include "platform/linux/report.h"
#include "platform/linux/unique_fd.h"

namespace stand_in {

namespace {

// A partition of a loop device answers for the whole loop device, with other sector numbers.
bool IsPartition(dev_t number) {
    const std::string mark = "/sys/dev/block/" + std::to_string(major(number)) + ":" +
                             std::to_string(minor(number)) + "/partition";
    return access(mark.c_str(), F_OK) == 0;
}

// What sysfs tells of a loop device, for who must not open it. Returns false when it does not.
bool ReadLoopAttributes(dev_t number, loop_info64& status) {
    const std::string directory = "/sys/dev/block/" + std::to_string(major(number)) + ":" +
                                  std::to_string(minor(number)) + "/loop/";
    std::ifstream offset(directory + "offset");
    std::ifstream limit(directory + "sizelimit");
    std::ifstream file(directory + "backing_file");
    std::string path;
    struct stat backing = {};
    if (!(offset >> status.lo_offset) || !(limit >> status.lo_sizelimit) ||
        !std::getline(file, path) || stat(path.c_str(), &backing) != 0) {
        return false;
    }
    status.lo_device = backing.st_dev;
    status.lo_inode = backing.st_ino;
    return true;
}

// Whether the block device is a loop device, and what backs it then. Returns 1, 0, or -1, having
// said why.
int ReadLoopStatus(const BlockDevice& device, Patience& patience, loop_info64& status) {
    if (major(device.number) != LOOP_MAJOR || IsPartition(device.number)) {
        return 0;
    }
    UniqueFd loop(-1);
    if (!patience.Try([&] {
            loop.Reset(open(device.path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
            return loop.Valid() && ioctl(loop.Get(), LOOP_GET_STATUS64, &status) == 0;
        })) {
        const int error = errno;
        if (error == EACCES && geteuid() != 0 && ReadLoopAttributes(device.number, status)) {
            return 1;
        }
        errno = error;
        Report("what backs loop device %s cannot be read: %s", device.path.c_str(),
               strerror(errno));
        return -1;
    }
    return 1;
}

// Whether a path that cannot be examined for this reason leads to no device at all: there is none,
// or only the dead mount of a cache that was killed.
bool LeadsNowhere(int error) {
    return error == ENOENT || error == ENOTDIR || error == ENOTCONN;
}

// Whether the loop device shows the whole of the file that has this status.
bool ShowsAllOf(const struct stat& file, const loop_info64& loop, const BlockDevice& device,
                const CacheEntry& cache) {
    if (loop.lo_device != file.st_dev || loop.lo_inode != file.st_ino) {
        return false;
    }
    if (loop.lo_offset == 0 && loop.lo_sizelimit == 0) {
        return true;
    }
    Report(
        "loop device %s has an offset or a size limit: its sectors are not those of %s, so that "
        "cache does not count as its own",
        device.path.c_str(), cache.device.c_str());
    return false;
}

}  // namespace

int FindCacheOf(const BlockDevice& device, const std::vector<CacheEntry>& caches,
                CacheEntry& found) {
    if (caches.empty()) {
        return 0;
    }
    Patience patience;
    loop_info64 loop = {};
    const int isLoop = ReadLoopStatus(device, patience, loop);
    int notFound = isLoop == -1 ? -1 : 0;
    for (const CacheEntry& cache : caches) {
        struct stat cached = {};
        if (!patience.Try([&] { return stat(cache.device.c_str(), &cached) == 0; })) {
            notFound = LeadsNowhere(errno) ? notFound : -1;
            Report("cached device %s cannot be examined: %s", cache.device.c_str(),
                   strerror(errno));
            continue;
        }
        if ((S_ISBLK(cached.st_mode) && cached.st_rdev == device.number) ||
            (isLoop == 1 && ShowsAllOf(cached, loop, device, cache))) {
            found = cache;
            return 1;
        }
    }
    return notFound;
}

}  // namespace stand_in
