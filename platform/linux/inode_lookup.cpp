// SPDX-License-Identifier: MIT
#include "platform/linux/inode_lookup.h"

#include <dirent.h>
#include <errno.h>
#include <fcntl.h>
#include <string.h>
#include <sys/stat.h>

#include <memory>

#include "platform/linux/report.h"
#include "platform/linux/unique_fd.h"

namespace {

struct DirectoryCloser {
    void operator()(DIR* directory) const { closedir(directory); }
};
using Directory = std::unique_ptr<DIR, DirectoryCloser>;

uint32_t LowHalf(uint64_t inode) {
    return static_cast<uint32_t>(inode);
}

// Opens the directory and makes sure that it lies on the device.
Directory OpenDirectory(const std::string& path, dev_t device) {
    Directory directory(opendir(path.c_str()));
    struct stat status = {};
    if (!directory || fstat(dirfd(directory.get()), &status) != 0) {
        Report("directory %s cannot be opened: %s", path.c_str(), strerror(errno));
        return nullptr;
    }
    if (status.st_dev != device) {
        Report("directory %s does not lie on the device whose files are asked for", path.c_str());
        return nullptr;
    }
    return directory;
}

// A handle of the entry and its inode number, if it is a regular file of the device with that low
// half; else an invalid one. What the entry said of its inode is not relied on.
int OpenHandle(int directory, const char* name, dev_t device, uint32_t inode, uint64_t& number) {
    UniqueFd handle(openat(directory, name, O_PATH | O_NOFOLLOW | O_CLOEXEC));
    struct stat status = {};
    if (!handle.Valid() || fstat(handle.Get(), &status) != 0 || !S_ISREG(status.st_mode) ||
        status.st_dev != device || LowHalf(status.st_ino) != inode) {
        return -1;
    }
    number = status.st_ino;
    return handle.Release();
}

// Makes the handle a descriptor that can be read from; the file is the same whatever its name means
// by now.
int OpenForReading(int handle) {
    return open(("/proc/self/fd/" + std::to_string(handle)).c_str(), O_RDONLY | O_CLOEXEC);
}

}  // namespace

int OpenFileByInode(const std::string& path, dev_t device, uint32_t inode, std::string& name) {
    const Directory directory = OpenDirectory(path, device);
    if (!directory) {
        return -1;
    }
    UniqueFd found(-1);
    uint64_t foundNumber = 0;
    std::string foundName;
    errno = 0;
    while (const dirent* const entry = readdir(directory.get())) {
        if (LowHalf(entry->d_ino) == inode) {
            uint64_t number = 0;
            UniqueFd handle(
                OpenHandle(dirfd(directory.get()), entry->d_name, device, inode, number));
            if (handle.Valid() && found.Valid() && number != foundNumber) {
                Report("inode %u in directory %s is ambiguous: %s and %s", inode, path.c_str(),
                       foundName.c_str(), entry->d_name);
                return -1;
            }
            if (handle.Valid() && !found.Valid()) {
                found.Reset(handle.Release());
                foundNumber = number;
                foundName = entry->d_name;
            }
        }
        errno = 0;
    }
    if (errno != 0) {
        Report("directory %s cannot be read: %s", path.c_str(), strerror(errno));
        return -1;
    }
    if (!found.Valid()) {
        Report("no regular file with inode %u in directory %s", inode, path.c_str());
        return -1;
    }
    const int file = OpenForReading(found.Get());
    if (file < 0) {
        Report("file %s/%s cannot be opened: %s", path.c_str(), foundName.c_str(), strerror(errno));
        return -1;
    }
    name = foundName;
    return file;
}
