// SPDX-License-Identifier: MIT
#include "platform/linux/mount_table.h"

#include <blkid/blkid.h>
#include <errno.h>
#include <fcntl.h>
#include <libmount/libmount.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>

#include <memory>

#include "platform/linux/patience.h"
#include "platform/linux/report.h"
#include "platform/linux/small_file.h"
#include "platform/linux/unique_fd.h"

namespace stand_in {

namespace {

// The thread's, not the process's: when the main thread has ended and others go on, /proc/self is
// what is left of the main thread, without mounts and descriptors.
constexpr char kMountInfo[] = "/proc/thread-self/mountinfo";
constexpr char kMountIdRow[] = "\nmnt_id:\t";  // of /proc/thread-self/fdinfo/N

struct TableDeleter {
    void operator()(libmnt_table* table) const { mnt_unref_table(table); }
};
struct IteratorDeleter {
    void operator()(libmnt_iter* iterator) const { mnt_free_iter(iterator); }
};

std::string Text(const char* text) {
    return text == nullptr ? "" : text;
}

Mount ToMount(libmnt_fs* fs) {
    Mount mount;
    mount.id = static_cast<uint64_t>(mnt_fs_get_id(fs));
    mount.mountPoint = Text(mnt_fs_get_target(fs));
    mount.root = Text(mnt_fs_get_root(fs));
    mount.fsType = Text(mnt_fs_get_fstype(fs));
    mount.source = Text(mnt_fs_get_source(fs));
    mount.fileSystem = mnt_fs_get_devno(fs);
    return mount;
}

bool IsNodeOf(const std::string& path, dev_t number) {
    struct stat status = {};
    return stat(path.c_str(), &status) == 0 && S_ISBLK(status.st_mode) && status.st_rdev == number;
}

}  // namespace

bool ReadMounts(std::vector<Mount>& mounts) {
    Patience patience;
    std::unique_ptr<libmnt_table, TableDeleter> table;
    std::unique_ptr<libmnt_iter, IteratorDeleter> iterator;
    if (!patience.Try([&] {
            table.reset(mnt_new_table_from_file(kMountInfo));
            iterator.reset(mnt_new_iter(MNT_ITER_FORWARD));
            return table && iterator;
        })) {
        Report("%s cannot be read: %s", kMountInfo, strerror(errno));
        return false;
    }
    std::vector<Mount> read;
    libmnt_fs* fs = nullptr;
    while (mnt_table_next_fs(table.get(), iterator.get(), &fs) == 0) {
        read.push_back(ToMount(fs));
    }
    mounts = std::move(read);
    return true;
}

bool FindMountId(const std::string& path, uint64_t& id) {
    const UniqueFd place(open(path.c_str(), O_PATH | O_CLOEXEC));
    if (!place.Valid()) {
        return false;
    }
    std::string content;
    const UniqueFd info(
        OpenSmallFile("/proc/thread-self/fdinfo/" + std::to_string(place.Get()), 0));
    if (!info.Valid() || !ReadSmallFile(info.Get(), content)) {
        return false;
    }
    const size_t row = content.find(kMountIdRow);
    if (row == std::string::npos) {
        errno = ENOTSUP;
        return false;
    }
    id = strtoull(content.c_str() + row + strlen(kMountIdRow), nullptr, 10);
    return true;
}

dev_t BlockDeviceNumber(const Mount& mount) {
    if (major(mount.fileSystem) != 0) {
        return mount.fileSystem;
    }
    // btrfs has a number of its own; only its source names a device. Elsewhere a source that is the
    // path of a device proves nothing: a tmpfs may be given any.
    struct stat status = {};
    if (mount.fsType == "btrfs" && stat(mount.source.c_str(), &status) == 0 &&
        S_ISBLK(status.st_mode)) {
        return status.st_rdev;
    }
    return 0;
}

bool FindBlockDevice(const Mount& mount, BlockDevice& device) {
    const dev_t number = BlockDeviceNumber(mount);
    if (IsNodeOf(mount.source, number)) {
        device = {mount.source, number};
        return true;
    }
    const std::unique_ptr<char, decltype(&free)> name(blkid_devno_to_devname(number), free);
    if (!name || !IsNodeOf(name.get(), number)) {
        return false;
    }
    device = {name.get(), number};
    return true;
}

}  // namespace stand_in
