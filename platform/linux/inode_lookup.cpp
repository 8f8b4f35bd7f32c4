// SPDX-License-Identifier: MIT
#include "platform/linux/inode_lookup.h"

#include <dirent.h>
#include <errno.h>
#include <fcntl.h>
#include <string.h>
#include <sys/stat.h>

#include <algorithm>
#include <memory>
#include <mutex>
#include <utility>
#include <vector>

#include "platform/linux/change_watch.h"
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

struct OpenedDirectory {
    UniqueFd fd{-1};
    struct stat status {};
};

// Opens the directory and makes sure that it lies on the device.
bool OpenDirectory(const std::string& path, dev_t device, Patience& patience,
                   OpenedDirectory& directory) {
    if (!patience.Try([&] {
            directory.fd.Reset(open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
            return directory.fd.Valid();
        }) ||
        fstat(directory.fd.Get(), &directory.status) != 0) {
        Report("directory %s cannot be opened: %s", path.c_str(), strerror(errno));
        return false;
    }
    if (directory.status.st_dev != device) {
        Report("directory %s does not lie on the device whose files are asked for", path.c_str());
        return false;
    }
    return true;
}

// Calls `take` with each entry until it returns false, from the start of the directory on. Returns
// whether it came to the end; if not, errno says why, and is 0 when it was `take`.
template <typename Take>
bool ReadEntries(const OpenedDirectory& directory, Patience& patience, Take take) {
    UniqueFd same(-1);
    if (!patience.Try([&] {
            same.Reset(openat(directory.fd.Get(), ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
            return same.Valid();
        })) {
        return false;
    }
    const Directory stream(fdopendir(same.Get()));
    if (!stream) {
        return false;
    }
    same.Release();
    errno = 0;
    while (const dirent* const entry = readdir(stream.get())) {
        if (!take(*entry)) {
            errno = 0;
            return false;
        }
        errno = 0;
    }
    return errno == 0;
}

using Names = std::vector<std::string>;

// The names of a directory by the low half of the inode number that the directory tells with them.
class NameIndex {
  public:
    void Add(const dirent& entry) {
        places_.emplace_back(LowHalf(entry.d_ino), static_cast<uint32_t>(text_.size()));
        text_.append(entry.d_name, strlen(entry.d_name) + 1);
    }

    // To be called when the last name is in.
    void Sort() { std::stable_sort(places_.begin(), places_.end(), ComesFirst); }

    // In the order in which they were added.
    Names Find(uint32_t inode) const {
        Names names;
        const auto range =
            std::equal_range(places_.begin(), places_.end(), Place(inode, 0), ComesFirst);
        for (auto place = range.first; place != range.second; ++place) {
            names.emplace_back(text_.c_str() + place->second);
        }
        return names;
    }

    bool HasRoom() const { return text_.size() < kMostText; }

  private:
    using Place = std::pair<uint32_t, uint32_t>;  // low half, start of the name in the text
    static constexpr size_t kMostText = size_t{64} << 20;

    static bool ComesFirst(const Place& left, const Place& right) {
        return left.first < right.first;
    }

    std::string text_;  // all names, each with its NUL
    std::vector<Place> places_;
};

// The names of the directory that was read last.
//
// Files are looked for one by one, and often all of one directory after each other: who asks again
// and again is answered from memory, as long as the kernel tells of no change of the directory.
class Memory {
  public:
    // Stores the names with the low half. Returns false with errno set when the directory cannot be
    // read.
    bool FindNames(const OpenedDirectory& directory, uint32_t inode, Patience& patience,
                   Names& names) {
        const std::lock_guard<std::mutex> lock(mutex_);
        if (!IsOf(directory)) {
            looks_ = 0;
            device_ = directory.status.st_dev;
            inode_ = directory.status.st_ino;
            index_.reset();
        }
        if (index_ && watch_.Changed()) {
            index_.reset();
        }
        if (index_ || (++looks_ >= kLooksBeforeWatch && Fill(directory, patience))) {
            names = index_->Find(inode);
            return true;
        }
        return ReadEntries(directory, patience, [&](const dirent& entry) {
            if (LowHalf(entry.d_ino) == inode) {
                names.emplace_back(entry.d_name);
            }
            return true;
        });
    }

  private:
    static constexpr int kLooksBeforeWatch = 8;  // a watch pays only for who looks often

    bool IsOf(const OpenedDirectory& directory) const {
        return directory.status.st_dev == device_ && directory.status.st_ino == inode_;
    }

    // Reads the directory into the index. Returns false when it cannot be relied on.
    bool Fill(const OpenedDirectory& directory, Patience& patience) {
        auto index = std::make_unique<NameIndex>();
        if (!watch_.Start("/proc/thread-self/fd/" + std::to_string(directory.fd.Get()),
                          DirectoryWatch::kNames) ||
            !ReadEntries(directory, patience,
                         [&](const dirent& entry) {
                             index->Add(entry);
                             return index->HasRoom();
                         }) ||
            watch_.Changed()) {
            return false;
        }
        index->Sort();
        index_ = std::move(index);
        return true;
    }

    std::mutex mutex_;
    dev_t device_ = 0;  // with inode_: the directory that was asked for last
    ino_t inode_ = 0;
    int looks_ = 0;  // into it, one after the other
    DirectoryWatch watch_;
    std::unique_ptr<NameIndex> index_;  // null: it must be read
};

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

// Picks the one file that is meant among the names. Returns false, having said why, when several
// files are; true also when none is.
bool Pick(const OpenedDirectory& directory, const std::string& path, uint32_t inode,
          const Names& names, Patience& patience, Found& found) {
    for (const std::string& name : names) {
        uint64_t number = 0;
        UniqueFd handle(OpenHandle(directory.fd.Get(), name.c_str(), directory.status.st_dev, inode,
                                   patience, number));
        if (handle.Valid() && found.handle.Valid() && number != found.number) {
            Report("inode %u in directory %s is ambiguous: %s and %s", inode, path.c_str(),
                   found.name.c_str(), name.c_str());
            return false;
        }
        if (handle.Valid()) {
            found.handle.Reset(handle.Release());
            found.number = number;
            found.name = name;
        }
    }
    return true;
}

bool Search(const OpenedDirectory& directory, const std::string& path, uint32_t inode,
            Patience& patience, Found& found) {
    static Memory& memory = *new Memory;  // may be in use while the process exits
    Names names;
    if (!memory.FindNames(directory, inode, patience, names)) {
        Report("directory %s cannot be read: %s", path.c_str(), strerror(errno));
        return false;
    }
    return Pick(directory, path, inode, names, patience, found);
}

}  // namespace

int OpenFileByInode(const std::string& directory, dev_t device, uint32_t inode, std::string& name) {
    Patience patience;
    OpenedDirectory entries;
    Found found;
    if (!OpenDirectory(directory, device, patience, entries) ||
        !Search(entries, directory, inode, patience, found)) {
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
