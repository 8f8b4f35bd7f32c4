// SPDX-License-Identifier: MIT
#include "platform/linux/mount_table.h"

#include <blkid/blkid.h>
#include <errno.h>
#include <fcntl.h>
#include <libmount/libmount.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>

#include <memory>
#include <mutex>

#include "platform/linux/change_watch.h"
#include "platform/linux/patience.h"
#include "platform/linux/report.h"
#include "platform/linux/small_file.h"
#include "platform/linux/unique_fd.h"

namespace stand_in {

namespace {

// The thread's, not the process's: when the main thread has ended and others go on, /proc/self is
// what is left of the main thread, without mounts and descriptors.
constexpr char kMountInfo[] = "/proc/thread-self/mountinfo";
constexpr int kMostReadings = 10;  // of a list that changes while it is read
constexpr int64_t kUntoldMilliseconds = 10;
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

// Reads what the kernel shows. Returns false with errno set and `text` untouched.
bool ReadText(std::string& text) {
    const UniqueFd file(open(kMountInfo, O_RDONLY | O_CLOEXEC));
    return file.Valid() && ReadAll(file.Get(), text);
}

// Returns null with errno set when there is no memory.
MountList Parse(std::string& text) {
    const std::unique_ptr<FILE, decltype(&fclose)> stream(fmemopen(text.data(), text.size(), "r"),
                                                          fclose);
    const std::unique_ptr<libmnt_table, TableDeleter> table(mnt_new_table());
    const std::unique_ptr<libmnt_iter, IteratorDeleter> iterator(mnt_new_iter(MNT_ITER_FORWARD));
    if (!stream || !table || !iterator ||
        mnt_table_parse_stream(table.get(), stream.get(), kMountInfo) != 0) {
        return nullptr;
    }
    auto mounts = std::make_shared<std::vector<Mount>>();
    libmnt_fs* fs = nullptr;
    while (mnt_table_next_fs(table.get(), iterator.get(), &fs) == 0) {
        mounts->push_back(ToMount(fs));
    }
    return mounts;
}

// The list of the last call, and what tells whether it still holds.
struct Memory {
    std::mutex mutex;
    MountWatch watch;
    MountList mounts;  // null: nothing is remembered
    std::string text;  // that they were read from
    Lifetime age{kUntoldMilliseconds};

    // Starts the watch and reads; `steady` tells whether nothing changed meanwhile. Returns false
    // with errno set.
    bool ReadSteadily(std::string& now, bool& steady) {
        if (!watch.Start()) {
            return false;
        }
        for (int i = 0; i < kMostReadings; ++i) {
            if (!ReadText(now)) {
                return false;
            }
            steady = !watch.Changed();
            if (steady) {
                break;
            }
        }
        return true;
    }

    void Remember(const MountList& read, const std::string& from) {
        mounts = read;
        text = from;
        age.Start();
    }

    // Whether the kernel still shows what it showed; also when it cannot be read for the moment, as
    // no change was told.
    bool ShowsTheSame() {
        std::string now;
        const bool same = !ReadText(now) || now == text;
        age.Start();
        return same;
    }
};

bool IsNodeOf(const std::string& path, dev_t number) {
    struct stat status = {};
    return stat(path.c_str(), &status) == 0 && S_ISBLK(status.st_mode) && status.st_rdev == number;
}

}  // namespace

MountList ReadMounts() {
    static Memory& memory = *new Memory;  // may be in use while the process exits
    const std::lock_guard<std::mutex> lock(memory.mutex);
    if (memory.mounts && !memory.watch.Changed() && (!memory.age.Over() || memory.ShowsTheSame())) {
        return memory.mounts;
    }
    memory.mounts.reset();
    std::string text;
    bool steady = false;
    MountList mounts;
    if (!Patience().Try([&] {
            mounts = memory.ReadSteadily(text, steady) ? Parse(text) : nullptr;
            return mounts != nullptr;
        })) {
        Report("%s cannot be read: %s", kMountInfo, strerror(errno));
    } else if (steady) {
        memory.Remember(mounts, text);
    }
    return mounts;
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
