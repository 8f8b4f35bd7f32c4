// SPDX-License-Identifier: MIT
#include "client/pins/pinned_now.h"

#include <dirent.h>
#include <errno.h>
#include <fcntl.h>
#include <string.h>
#include <sys/stat.h>

#include <memory>

#include "client/show/output.h"
#include "client/show/text.h"

namespace client {

namespace {

struct DirectoryCloser {
    void operator()(DIR* directory) const { closedir(directory); }
};

std::string DirectoryOf(const std::string& path) {
    return path.substr(0, path.find_last_of('/'));
}

void Set(PinnedNow& now, PinnedState state, const std::string& why) {
    now.state = state;
    now.why = why;
}

// Stores the name of the regular file with this inode (low half) in the directory, or "". Returns
// false, with errno set, when the directory cannot be read.
bool FindName(const std::string& path, dev_t device, uint32_t inode, std::string& name) {
    const std::unique_ptr<DIR, DirectoryCloser> directory(opendir(path.c_str()));
    name.clear();
    if (!directory) {
        return errno == ENOENT || errno == ENOTDIR;
    }
    errno = 0;
    while (const dirent* const entry = readdir(directory.get())) {
        struct stat status = {};
        if (static_cast<uint32_t>(entry->d_ino) == inode &&
            fstatat(dirfd(directory.get()), entry->d_name, &status, AT_SYMLINK_NOFOLLOW) == 0 &&
            S_ISREG(status.st_mode) && status.st_dev == device &&
            static_cast<uint32_t>(status.st_ino) == inode) {
            name = entry->d_name;
            return true;
        }
        errno = 0;
    }
    return errno == 0;
}

// Whether the service would have stored `name` as the last component of `path`: it cuts names at
// white space.
bool IsCutTo(const std::string& name, const std::string& path) {
    const std::string last = path.substr(path.find_last_of('/') + 1);
    return StartsWith(name, last) && HasWhiteSpace(name.substr(last.size()).substr(0, 1));
}

// Why what lies at or above a path does not tell of the volume: empty when the nearest that is
// there lies on the volume.
std::string WhyNotSeen(std::string path, const std::string& mountPath, dev_t device) {
    struct stat status = {};
    do {
        path = DirectoryOf(path);
        if (stat(path.c_str(), &status) == 0) {
            return status.st_dev == device
                       ? ""
                       : "another file system is mounted over " + Printable(path);
        }
        if (errno != ENOENT && errno != ENOTDIR) {
            return Printable(path) + ": " + strerror(errno);
        }
    } while (path.size() > mountPath.size());
    return Printable(mountPath) + " is not there";
}

// Looks for the file under another name of its directory. Returns whether that settled it.
bool SettleByName(const std::string& path, const Volume& volume, dev_t device, bool onlyCut,
                  Mapper& mapper, PinnedNow& now) {
    std::string name;
    if (!FindName(DirectoryOf(path), device, now.stored.inode, name)) {
        Set(now, PinnedState::kUntold, Printable(DirectoryOf(path)) + ": " + strerror(errno));
        return true;
    }
    if (name.empty() || (onlyCut && !IsCutTo(name, path))) {
        return false;
    }
    if (mapper.Map(volume.mountPath, now.stored.relative, now.stored.inode, now.file.extents) ==
        MapOutcome::kFailed) {
        Set(now, PinnedState::kUntold, "its extents cannot be told");
    } else {
        Set(now, PinnedState::kOtherName, "lies there under another name: " + Printable(name));
    }
    return true;
}

void LookAtAbsent(const std::string& path, const Volume& volume, dev_t device, int error,
                  Mapper& mapper, PinnedNow& now) {
    const std::string why = error == ENOENT || error == ENOTDIR
                                ? WhyNotSeen(path, volume.mountPath, device)
                                : strerror(error);
    if (!why.empty()) {
        Set(now, PinnedState::kUntold, why);
    } else if (!SettleByName(path, volume, device, false, mapper, now)) {
        Set(now, PinnedState::kGone, strerror(error));
    }
}

void LookAtPresent(const std::string& path, const Volume& volume,
                   const std::vector<Volume>& volumes, Mapper& mapper, PinnedNow& now) {
    std::string why;
    if (!ExamineFile(path, volumes, now.file, why)) {
        Set(now, PinnedState::kUntold, why);
    } else if (now.file.volume->mountPath != volume.mountPath) {
        Set(now, PinnedState::kUntold,
            "now lies on volume " + Printable(now.file.volume->mountPath));
    } else if (mapper.MapFresh(volume.mountPath, now.file.relative, now.file.inode,
                               now.file.extents) == MapOutcome::kFailed) {
        Set(now, PinnedState::kUntold, "its extents cannot be told");
    }
}

}  // namespace

PinnedNow LookAtStored(const StoredFile& stored, const Volume& volume,
                       const std::vector<Volume>& volumes, Mapper& mapper) {
    PinnedNow now = {stored, PinnedState::kThere, {}, ""};
    const std::string path = PathOnVolume(volume.mountPath, stored.relative);
    struct stat mount = {};
    struct stat status = {};
    if (stat(volume.mountPath.c_str(), &mount) != 0) {
        Set(now, PinnedState::kUntold, Printable(volume.mountPath) + ": " + strerror(errno));
    } else if (lstat(path.c_str(), &status) != 0) {
        LookAtAbsent(path, volume, mount.st_dev, errno, mapper, now);
    } else if (status.st_dev != mount.st_dev) {
        Set(now, PinnedState::kUntold, "another file system is mounted over it");
    } else if (S_ISREG(status.st_mode) && static_cast<uint32_t>(status.st_ino) == stored.inode) {
        LookAtPresent(path, volume, volumes, mapper, now);
    } else if (!SettleByName(path, volume, mount.st_dev, true, mapper, now)) {
        Set(now, PinnedState::kReplaced,
            "replaced: inode " + std::to_string(stored.inode) + " was pinned, inode " +
                std::to_string(static_cast<uint32_t>(status.st_ino)) + " is there now");
    }
    return now;
}

std::vector<PinnedNow> LookAtPinned(const ConfigState& state, const Volume& volume,
                                    const std::vector<Volume>& volumes, Mapper& mapper) {
    std::vector<PinnedNow> all;
    const auto pinned = state.pinned.find(volume.mountPath);
    if (pinned != state.pinned.end()) {
        for (const StoredFile& stored : pinned->second) {
            all.push_back(LookAtStored(stored, volume, volumes, mapper));
        }
    }
    return all;
}

}  // namespace client
