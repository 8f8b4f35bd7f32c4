// SPDX-License-Identifier: MIT
#include "client/request/leftovers.h"

#include <dirent.h>
#include <errno.h>
#include <fcntl.h>
#include <stdlib.h>
#include <string.h>
#include <sys/file.h>
#include <sys/msg.h>
#include <sys/stat.h>
#include <unistd.h>

#include <memory>
#include <vector>

#include "client/request/file_check.h"
#include "client/service/queue.h"
#include "client/show/text.h"
#include "util/scoped.h"

namespace client {

namespace {

constexpr size_t kRandomCharacters = 6;

struct DirectoryCloser {
    void operator()(DIR* directory) const { closedir(directory); }
};

std::vector<std::string> NamesIn(int fd) {
    std::vector<std::string> names;
    const int copy = openat(fd, ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    const std::unique_ptr<DIR, DirectoryCloser> directory(copy < 0 ? nullptr : fdopendir(copy));
    while (const dirent* const entry = directory ? readdir(directory.get()) : nullptr) {
        names.emplace_back(entry->d_name);
    }
    return names;
}

// Whether no message that names files can be on its way: none waits, and the last that was taken
// was taken a while ago.
bool QueueIsQuiet(time_t settled) {
    QueueFacts facts;
    std::string why;
    struct msqid_ds record = {};
    return ReadQueueFacts(facts, why) && facts.messages == 0 &&
           msgctl(facts.id, IPC_STAT, &record) == 0 && record.msg_rtime + settled < time(nullptr);
}

// Whether nobody uses the directory, and this user made it. One that is new may be about to be
// locked.
bool IsLeftBehind(int fd, time_t settled) {
    struct stat status = {};
    return fstat(fd, &status) == 0 && status.st_uid == geteuid() &&
           status.st_ctime + settled < time(nullptr) && flock(fd, LOCK_EX | LOCK_NB) == 0;
}

void RemoveLinks(int fd) {
    for (const std::string& name : NamesIn(fd)) {
        if (name == "target" || StartsWith(name, "gone#")) {
            unlinkat(fd, name.c_str(), 0);
        }
    }
}

}  // namespace

bool IsLinkDirectoryName(const std::string& name) {
    return StartsWith(name, kLinkDirectory) &&
           name.size() == strlen(kLinkDirectory) + kRandomCharacters;
}

int MakeLinkDirectory(const std::string& mountPath, std::string& directory) {
    directory = PathOnVolume(mountPath, kLinkDirectory + std::string(kRandomCharacters, 'X'));
    if (mkdtemp(directory.data()) == nullptr) {
        return -1;
    }
    const int fd = open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
    if (fd == -1 || flock(fd, LOCK_EX | LOCK_NB) != 0) {
        const int error = errno;
        if (fd != -1) {
            close(fd);
        }
        rmdir(directory.c_str());
        errno = error;
        return -1;
    }
    return fd;
}

void RemoveLeftovers(const std::string& mountPath, time_t settled) {
    const ScopedFd top(open(mountPath.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!top.valid()) {
        return;
    }
    for (const std::string& name : NamesIn(top.get())) {
        if (!IsLinkDirectoryName(name)) {
            continue;
        }
        const ScopedFd fd(
            openat(top.get(), name.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
        // The queue is asked after the lock was had: whoever held it has sent what it had to send.
        if (fd.valid() && IsLeftBehind(fd.get(), settled) && QueueIsQuiet(settled)) {
            RemoveLinks(fd.get());
            unlinkat(top.get(), name.c_str(), AT_REMOVEDIR);
        }
    }
}

}  // namespace client
