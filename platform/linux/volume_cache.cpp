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

#include "platform/linux/report.h"
#include "platform/linux/unique_fd.h"

namespace {

// A partition of a loop device answers for the whole loop device, with other sector numbers.
bool IsPartition(dev_t number) {
    const std::string mark = "/sys/dev/block/" + std::to_string(major(number)) + ":" +
                             std::to_string(minor(number)) + "/partition";
    return access(mark.c_str(), F_OK) == 0;
}

// Stores what backs the block device. Returns false when it is not a loop device in use.
bool ReadLoopStatus(const BlockDevice& device, loop_info64& status) {
    if (major(device.number) != LOOP_MAJOR || IsPartition(device.number)) {
        return false;
    }
    const UniqueFd loop(open(device.path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
    if (!loop.Valid() || ioctl(loop.Get(), LOOP_GET_STATUS64, &status) != 0) {
        Report("what backs loop device %s cannot be told: %s", device.path.c_str(),
               strerror(errno));
        return false;
    }
    return true;
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

const CacheEntry* FindCacheOf(const BlockDevice& device, const std::vector<CacheEntry>& caches) {
    if (caches.empty()) {
        return nullptr;
    }
    loop_info64 loop = {};
    const bool isLoop = ReadLoopStatus(device, loop);
    for (const CacheEntry& cache : caches) {
        struct stat cached = {};
        if (stat(cache.device.c_str(), &cached) != 0) {
            Report("cached device %s cannot be examined: %s", cache.device.c_str(),
                   strerror(errno));
            continue;
        }
        if ((S_ISBLK(cached.st_mode) && cached.st_rdev == device.number) ||
            (isLoop && ShowsAllOf(cached, loop, device, cache))) {
            return &cache;
        }
    }
    return nullptr;
}
