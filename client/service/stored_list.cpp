// SPDX-License-Identifier: MIT
#include "client/service/stored_list.h"

#include <errno.h>
#include <fcntl.h>
#include <json/json.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include "client/show/output.h"
#include "client/show/text.h"
#include "util/json_file.h"
#include "util/stored_format.h"

namespace client {

namespace {

constexpr mode_t kOwnerOnly = 0600;

// Whether the document holds lists of pinned files, or none at all. Whatever else is there in their
// place would read as nothing being pinned, and cost every pin.
bool HoldsLists(const Json::Value& document) {
    const auto isObject = [](const Json::Value& value) {
        return value.isNull() || value.isObject();
    };
    if (!document.isObject() || !isObject(document[kVolumesKey])) {
        return false;
    }
    for (const Json::Value& volume : document[kVolumesKey]) {
        if (!isObject(volume) || !isObject(volume[kFilesKey])) {
            return false;
        }
        for (const Json::Value& path : volume[kFilesKey]) {
            if (!path.isString()) {
                return false;
            }
        }
    }
    return true;
}

void PutLists(const StoredLists& lists, Json::Value& document) {
    Json::Value& volumes = document[kVolumesKey];
    for (const auto& [mountPath, files] : lists) {
        Json::Value members(Json::objectValue);
        for (const StoredFile& file : files) {
            members[std::to_string(file.inode)] = file.relative;
        }
        if (files.empty()) {
            volumes.removeMember(mountPath);
        } else {
            volumes[mountPath][kFilesKey] = members;
        }
    }
}

// The service's writer does not test whether its bytes arrived; what it wrote is read again.
bool WriteAndVerify(const Json::Value& document, const std::string& path) {
    Json::Value written;
    return WriteJsonToFile(document, path.c_str()) == 0 && ReadFileToJson(path, written) == 0 &&
           written == document;
}

// Gives the new file the model's mode and owner, and takes both to the disk in that order. A
// process that may not change owners need not when they agree.
bool TakeThePlace(const std::string& model, const std::string& fresh, const std::string& target,
                  int fd) {
    struct stat old = {};
    struct stat now = {};
    const ScopedFd directory(open(DirectoryOf(target).c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!directory.valid() || stat(model.c_str(), &old) != 0 || fstat(fd, &now) != 0) {
        return false;
    }
    const bool owned = (old.st_uid == now.st_uid && old.st_gid == now.st_gid) ||
                       fchown(fd, old.st_uid, old.st_gid) == 0;
    return owned && fchmod(fd, old.st_mode & 07777U) == 0 && fsync(fd) == 0 &&
           rename(fresh.c_str(), target.c_str()) == 0 && fsync(directory.get()) == 0;
}

}  // namespace

bool ReadStore(const std::string& path, Json::Value& document, std::string& why) {
    const Json::Value* const read = &document;  // looking does not add members
    if (ReadFileToJson(path, document) == 0 && HoldsLists(*read)) {
        return true;
    }
    why = "configuration file " + Printable(path) + " is damaged";
    return false;
}

bool WriteStore(const Json::Value& document, const std::string& model, const std::string& target,
                std::string& why) {
    const std::string fresh = target + ".new";
    // One that a killed repair left is written anew: the lock is held.
    const ScopedFd fd(
        open(fresh.c_str(), O_RDWR | O_CREAT | O_TRUNC | O_NOFOLLOW | O_CLOEXEC, kOwnerOnly));
    if (!fd.valid()) {
        why = Printable(fresh) + ": " + strerror(errno);
        return false;
    }
    errno = 0;
    if (!WriteAndVerify(document, fresh) || !TakeThePlace(model, fresh, target, fd.get())) {
        why = Printable(fresh) + ": " + (errno != 0 ? strerror(errno) : "was not written in full");
        unlink(fresh.c_str());
        return false;
    }
    return true;
}

bool StoredList::LockAsItIs(const std::string& path, std::string& why) {
    const CString directory(realpath(DirectoryOf(path).c_str(), nullptr));
    const CString resolved(realpath(path.c_str(), nullptr));
    if (!resolved && (errno != ENOENT || !directory)) {
        why = "configuration file " + Printable(path) + ": " + strerror(errno);
        return false;
    }
    path_ = resolved ? resolved.get() : directory.get() + ("/" + NameOf(path));
    // The file is never removed: one repair could lock it just before, and the next a new one.
    const std::string name = path_ + ".lock";
    lock_ = std::make_unique<ScopedFd>(
        open(name.c_str(), O_RDWR | O_CREAT | O_NOFOLLOW | O_CLOEXEC, kOwnerOnly));
    if (!lock_->valid() || flock(lock_->get(), LOCK_EX | LOCK_NB) != 0) {
        why = lock_->valid() && errno == EWOULDBLOCK
                  ? "another repair is at work on " + Printable(path_)
                  : Printable(name) + ": " + strerror(errno);
        return false;
    }
    return true;
}

bool StoredList::Lock(const std::string& path, std::string& why) {
    Json::Value document;
    if (access(path.c_str(), F_OK) != 0) {
        why = "configuration file " + Printable(path) + ": " + strerror(errno);
        return false;
    }
    return LockAsItIs(path, why) && ReadStore(path_, document, why);
}

bool StoredList::Replace(const StoredLists& lists, std::string& why) {
    Json::Value document;
    if (!ReadStore(path_, document, why)) {
        return false;
    }
    PutLists(lists, document);
    return WriteStore(document, path_, path_, why);
}

}  // namespace client
