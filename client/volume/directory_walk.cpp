// SPDX-License-Identifier: MIT
#include "client/volume/directory_walk.h"

#include <dirent.h>
#include <errno.h>
#include <fcntl.h>
#include <string.h>
#include <sys/mount.h>
#include <unistd.h>

#include <algorithm>
#include <memory>

#include "client/show/output.h"
#include "client/volume/file_ref.h"
#include "util/scoped.h"

namespace client {

namespace {

struct DirectoryCloser {
    void operator()(DIR* directory) const { closedir(directory); }
};

class Walk {
  public:
    Walk(dev_t device, const std::function<void(const WalkEntry&)>& visit)
        : device_(device), visit_(visit) {}

    void Enter(const WalkEntry& directory) {
        std::vector<std::string> names;
        const int error = ListNames(directory.path, names);
        if (error != 0) {
            visit_({directory.path, directory.status, error});
        }
        const bool slash = directory.path.back() == '/';
        for (const std::string& name : names) {
            Meet(directory.path + (slash ? "" : "/") + name);
        }
    }
    std::vector<std::string> TakeMounts() { return std::move(mounts_); }

  private:
    void Meet(const std::string& path) {
        WalkEntry entry = {path, {}, 0};
        if (lstat(path.c_str(), &entry.status) != 0) {
            entry.error = errno;
        }
        if (entry.error != 0 || !S_ISDIR(entry.status.st_mode)) {
            visit_(entry);
        } else if (entry.status.st_dev != device_) {
            mounts_.push_back(path);
        } else {
            Enter(entry);
        }
    }

    const dev_t device_;
    const std::function<void(const WalkEntry&)>& visit_;
    std::vector<std::string> mounts_;
};

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

// Returns the first of the mount points that may hide one of the files, empty when none does. A
// copy of the volume's mount has nothing mounted in it, so that the directories below can be seen;
// who may not make one knows nothing of them.
std::string FindHiding(const std::string& mountPath, const std::vector<std::string>& mounts,
                       const std::set<uint32_t>& inodes) {
    const ScopedFd bare(mounts.empty() ? -1
                                       : open_tree(AT_FDCWD, mountPath.c_str(),
                                                   OPEN_TREE_CLONE | OPEN_TREE_CLOEXEC));
    for (const std::string& mount : mounts) {
        bool hides = !bare.valid();
        if (bare.valid()) {
            const std::string below = "/proc/self/fd/" + std::to_string(bare.get()) + "/" +
                                      mount.substr(mountPath.size());
            WalkBelow(below, [&](const WalkEntry& entry) {
                hides |= entry.error != 0 ||
                         inodes.count(static_cast<uint32_t>(entry.status.st_ino)) > 0;
            });
        }
        if (hides) {
            return mount;
        }
    }
    return "";
}

}  // namespace

int ListNames(const std::string& directory, std::vector<std::string>& names) {
    // What was a directory a moment ago may be a link by now, which is not followed.
    const int fd = open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
    const std::unique_ptr<DIR, DirectoryCloser> stream(fd < 0 ? nullptr : fdopendir(fd));
    if (!stream) {
        const int error = errno;
        if (fd >= 0) {
            close(fd);
        }
        return error;
    }
    errno = 0;
    while (const dirent* const entry = readdir(stream.get())) {
        if (strcmp(entry->d_name, ".") != 0 && strcmp(entry->d_name, "..") != 0) {
            names.emplace_back(entry->d_name);
        }
    }
    const int error = errno;
    std::sort(names.begin(), names.end());
    return error;
}

std::vector<std::string> WalkBelow(const std::string& directory,
                                   const std::function<void(const WalkEntry&)>& visit) {
    WalkEntry top = {directory, {}, 0};
    if (lstat(directory.c_str(), &top.status) != 0) {
        top.error = errno;
        visit(top);
        return {};
    }
    Walk walk(top.status.st_dev, visit);
    walk.Enter(top);
    return walk.TakeMounts();
}

InodeSearch SearchVolume(const std::string& mountPath, const std::set<uint32_t>& inodes,
                         const std::string& bitmapPath) {
    InodeSearch search;
    struct stat bitmap = {};
    const bool everPinned = stat(bitmapPath.c_str(), &bitmap) == 0;
    std::set<uint32_t> missing = inodes;
    const std::vector<std::string> mounts = WalkBelow(mountPath, [&](const WalkEntry& entry) {
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
            missing.erase(inode);
        }
    });
    // Only what was found nowhere else can lie there.
    const std::string hiding = missing.empty() ? "" : FindHiding(mountPath, mounts, missing);
    if (!hiding.empty()) {
        search.unreadable = Printable(hiding) + ": another file system is mounted over it";
    }
    return search;
}

}  // namespace client
