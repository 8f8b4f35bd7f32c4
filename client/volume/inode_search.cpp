// SPDX-License-Identifier: MIT
#include "client/volume/inode_search.h"

#include <fcntl.h>
#include <string.h>
#include <sys/stat.h>

#include "client/show/output.h"
#include "client/volume/directory_walk.h"
#include "client/volume/plain_links.h"

namespace client {

namespace {

// Whether the file came into being after that moment. Where the file system does not keep births,
// the answer is no.
bool WasBornAfter(const std::string& path, const struct timespec& moment) {
    struct statx status = {};
    if (statx(AT_FDCWD, path.c_str(), AT_SYMLINK_NOFOLLOW, STATX_BTIME, &status) != 0 ||
        (status.stx_mask & STATX_BTIME) == 0) {
        return false;
    }
    return status.stx_btime.tv_sec > moment.tv_sec ||
           (status.stx_btime.tv_sec == moment.tv_sec &&
            static_cast<long>(status.stx_btime.tv_nsec) > moment.tv_nsec);
}

}  // namespace

InodeSearch SearchVolume(const std::string& mountPath, const std::set<uint32_t>& inodes,
                         const std::string& bitmapPath) {
    InodeSearch search;
    struct stat bitmap = {};
    const bool everPinned = stat(bitmapPath.c_str(), &bitmap) == 0;
    const auto visit = [&](const WalkEntry& entry) {
        // The service's own, whatever its number was before; and links, which are no file's place.
        if (entry.path == bitmapPath || IsLinkName(PathBelow(mountPath, entry.path))) {
            return;
        }
        const auto inode = static_cast<uint32_t>(entry.status.st_ino);
        if (entry.error != 0) {
            search.unreadable = Printable(entry.path) + ": " + strerror(entry.error);
        } else if (S_ISREG(entry.status.st_mode) && inodes.count(inode) > 0 &&
                   !(everPinned && WasBornAfter(entry.path, bitmap.st_mtim))) {
            search.paths.insert({inode, entry.path});
        }
    };
    WalkBelow(mountPath, visit);
    return search;
}

}  // namespace client
