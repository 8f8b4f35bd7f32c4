// SPDX-License-Identifier: MIT
#include "client/request/stale_entries.h"

#include <errno.h>
#include <fcntl.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include "client/request/leftovers.h"
#include "util/scoped.h"
#include "util/space.h"

namespace client {

namespace {

void TakeForTerminate(int) {
    raise(SIGTERM);
}

}  // namespace

StaleEntryLinks::StaleEntryLinks(const Volume& volume) : volume_(volume) {
    struct sigaction take = {};
    take.sa_handler = TakeForTerminate;
    // nohup's wish is kept.
    hangUpSaved_ = sigaction(SIGHUP, nullptr, &hangUp_) == 0 && hangUp_.sa_handler != SIG_IGN &&
                   sigaction(SIGHUP, &take, nullptr) == 0;
}

StaleEntryLinks::~StaleEntryLinks() {
    if (!keep_) {
        for (const std::string& path : paths_) {
            unlink(path.c_str());
        }
        if (!directory_.empty()) {
            rmdir(directory_.c_str());
        }
    }
    if (lock_ != -1) {
        close(lock_);
    }
    if (hangUpSaved_) {
        sigaction(SIGHUP, &hangUp_, nullptr);
    }
}

bool StaleEntryLinks::Link(const std::string& target, uint32_t inode, std::string& why) {
    struct stat status = {};
    const std::string name = "gone#" + std::to_string(inode);
    const std::string path = directory_ + "/" + name;
    if (link(target.c_str(), path.c_str()) != 0 || lstat(path.c_str(), &status) != 0) {
        why = path + ": " + strerror(errno);
        return false;
    }
    paths_.push_back(path);
    files_.push_back({&volume_,
                      path,
                      PathBelow(volume_.mountPath, path),
                      static_cast<uint32_t>(status.st_ino),
                      0,
                      {}});
    return true;
}

bool StaleEntryLinks::Make(const std::vector<uint32_t>& inodes, std::string& why) {
    std::string directory;
    RemoveLeftovers(volume_.mountPath);
    lock_ = MakeLinkDirectory(volume_.mountPath, directory);
    if (lock_ == -1) {
        why = directory + ": " + strerror(errno);
        return false;
    }
    directory_ = directory;
    // The bitmap file lives as long as anything is pinned. A file made here could be given the very
    // inode that is looked for.
    const CString bitmap(BitmapPathByDirectory(volume_.mountPath.c_str()));
    std::string target = bitmap ? bitmap.get() : "";
    if (access(target.c_str(), F_OK) != 0) {
        target = directory_ + "/target";
        paths_.push_back(target);
        const ScopedFd fd(open(target.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600));
        if (!fd.valid()) {
            why = target + ": " + strerror(errno);
            return false;
        }
    }
    for (const uint32_t inode : inodes) {
        if (!Link(target, inode, why)) {
            return false;
        }
    }
    return true;
}

}  // namespace client
