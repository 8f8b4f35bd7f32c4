// SPDX-License-Identifier: MIT
#include "client/volume/directory_walk.h"

#include <dirent.h>
#include <errno.h>
#include <fcntl.h>
#include <string.h>
#include <unistd.h>

#include <algorithm>
#include <memory>
#include <vector>

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
    size_t Mounts() const { return mounts_; }

  private:
    void Meet(const std::string& path) {
        WalkEntry entry = {path, {}, 0};
        if (lstat(path.c_str(), &entry.status) != 0) {
            entry.error = errno;
        }
        if (entry.error != 0 || !S_ISDIR(entry.status.st_mode)) {
            visit_(entry);
        } else if (entry.status.st_dev != device_) {
            ++mounts_;
        } else {
            Enter(entry);
        }
    }

    const dev_t device_;
    const std::function<void(const WalkEntry&)>& visit_;
    size_t mounts_ = 0;
};

}  // namespace

int ListNames(const std::string& directory, std::vector<std::string>& names) {
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

size_t WalkBelow(const std::string& directory, const std::function<void(const WalkEntry&)>& visit) {
    WalkEntry top = {directory, {}, 0};
    if (lstat(directory.c_str(), &top.status) != 0) {
        top.error = errno;
        visit(top);
        return 0;
    }
    Walk walk(top.status.st_dev, visit);
    walk.Enter(top);
    return walk.Mounts();
}

}  // namespace client
