// SPDX-License-Identifier: MIT
#include "platform/linux/inode_lookup.h"

#include <dirent.h>
#include <errno.h>
#include <fcntl.h>
#include <string.h>
#include <sys/stat.h>

#include <memory>

#include "platform/linux/patience.h"
#include "platform/linux/report.h"
#include "platform/linux/unique_fd.h"

namespace stand_in {

namespace {

struct DirectoryCloser {
    void operator()(DIR* directory) const { closedir(directory); }
};
using Directory = std::unique_ptr<DIR, DirectoryCloser>;

uint32_t LowHalf(uint64_t inode) {
    return static_cast<uint32_t>(inode);
}

// Opens the directory and makes sure that it lies on the device.
Directory OpenDirectory(const std::string& path, dev_t device, Patience& patience) {
    Directory directory;
    struct stat status = {};
    if (!patience.Try([&] {
            directory.reset(opendir(path.c_str()));
            return directory != nullptr;
        }) ||
        fstat(dirfd(directory.get()), &status) != 0) {
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
int OpenHandle(int directory, const char* name, dev_t device, uint32_t inode, Patience& patience,
               uint64_t& number) {
    UniqueFd handle(-1);
    struct stat status = {};
    if (!patience.Try([&] {
            handle.Reset(openat(directory, name, O_PATH | O_NOFOLLOW | O_CLOEXEC));
            return handle.Valid();
        }) ||
        fstat(handle.Get(), &status) != 0 || !S_ISREG(status.st_mode) || status.st_dev != device ||
        LowHalf(status.st_ino) != inode) {
        return -1;
    }
    number = status.st_ino;
    return handle.Release();
}

struct Found {
    UniqueFd handle{-1};
    uint64_t number = 0;  // of the inode, whole
    std::string name;
};

// Looks the directory through for the one file that is meant. Returns false, having said why, when
// the directory cannot be read, or several files are; true also when none is.
bool Search(DIR* directory, const std::string& path, dev_t device, uint32_t inode,
            Patience& patience, Found& found) {
    errno = 0;
    while (const dirent* const entry = readdir(directory)) {
        uint64_t number = 0;
        UniqueFd handle(
            LowHalf(entry->d_ino) != inode
                ? -1
                : OpenHandle(dirfd(directory), entry->d_name, device, inode, patience, number));
        if (handle.Valid() && found.handle.Valid() && number != found.number) {
            Report("inode %u in directory %s is ambiguous: %s and %s", inode, path.c_str(),
                   found.name.c_str(), entry->d_name);
            return false;
        }
        if (handle.Valid()) {
            found.handle.Reset(handle.Release());
            found.number = number;
            found.name = entry->d_name;
        }
        errno = 0;
    }
    if (errno != 0) {
        Report("directory %s cannot be read: %s", path.c_str(), strerror(errno));
        return false;
    }
    return true;
}

}  // namespace

int OpenFileByInode(const std::string& directory, dev_t device, uint32_t inode, std::string& name) {
    Patience patience;
    const Directory entries = OpenDirectory(directory, device, patience);
    Found found;
    if (!entries || !Search(entries.get(), directory, device, inode, patience, found)) {
        return -1;
    }
    if (!found.handle.Valid()) {
        Report("no regular file with inode %u in directory %s", inode, directory.c_str());
        return -1;
    }
    // By its handle: the file is the same whatever its name means by now. (The thread's own list:
    // the process's is gone when the main thread has ended.)
    const std::string handlePath = "/proc/thread-self/fd/" + std::to_string(found.handle.Get());
    UniqueFd file(-1);
    if (!patience.Try([&] {
            file.Reset(open(handlePath.c_str(), O_RDONLY | O_CLOEXEC));
            return file.Valid();
        })) {
        Report("file %s/%s cannot be opened: %s", directory.c_str(), found.name.c_str(),
               strerror(errno));
        return -1;
    }
    name = found.name;
    return file.Release();
}

}  // namespace stand_in
