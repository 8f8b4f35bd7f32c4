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

bool ReadLists(const std::string& path, Json::Value& document, std::string& why) {
    const Json::Value* const read = &document;  // looking does not add members
    if (ReadFileToJson(path, document) == 0 && HoldsLists(*read)) {
        return true;
    }
    why = "configuration file " + Printable(path) + " is damaged";
    return false;
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

// An emptied queue is null, as the service leaves it.
void DropRequests(const std::string& mountPath, Json::Value& document) {
    Json::Value& requests = document[kRequestsKey];
    Json::Value queue;
    for (const Json::Value& number : document[kRequestQueueKey]) {
        const std::string name = number.isString() ? number.asString() : "";
        const Json::Value request =
            requests.isObject() ? requests.get(name, Json::Value()) : Json::Value();
        if (request.isObject() && request[kMountPathKey] == mountPath) {
            requests.removeMember(name);
        } else {
            queue.append(number);
        }
    }
    document[kRequestQueueKey] = queue;
}

// The service's writer does not test whether its bytes arrived; what it wrote is read again.
bool WriteAndVerify(const Json::Value& document, const std::string& path) {
    Json::Value written;
    return WriteJsonToFile(document, path.c_str()) == 0 && ReadFileToJson(path, written) == 0 &&
           written == document;
}

// Gives the new file the old one's mode and owner, and takes both to the disk in that order.
bool TakeThePlace(const std::string& path, const std::string& fresh, int fd) {
    struct stat old = {};
    const ScopedFd directory(open(DirectoryOf(path).c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    return directory.valid() && stat(path.c_str(), &old) == 0 &&
           fchown(fd, old.st_uid, old.st_gid) == 0 && fchmod(fd, old.st_mode & 07777U) == 0 &&
           fsync(fd) == 0 && rename(fresh.c_str(), path.c_str()) == 0 &&
           fsync(directory.get()) == 0;
}

}  // namespace

bool StoredList::Lock(const std::string& path, std::string& why) {
    const CString resolved(realpath(path.c_str(), nullptr));
    if (!resolved) {
        why = "configuration file " + Printable(path) + ": " + strerror(errno);
        return false;
    }
    path_ = resolved.get();
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
    Json::Value document;
    return ReadLists(path_, document, why);
}

bool StoredList::Replace(const StoredLists& lists, std::string& why) {
    Json::Value document;
    if (!ReadLists(path_, document, why)) {
        return false;
    }
    PutLists(lists, document);
    return Put(document, why);
}

bool StoredList::Forget(const std::string& mountPath, std::string& why) {
    Json::Value document;
    if (!ReadLists(path_, document, why)) {
        return false;
    }
    PutLists({{mountPath, {}}}, document);
    DropRequests(mountPath, document);
    return Put(document, why);
}

bool StoredList::Put(const Json::Value& document, std::string& why) {
    const std::string fresh = path_ + ".new";
    // One that a killed repair left is written anew: the lock is held.
    const ScopedFd fd(
        open(fresh.c_str(), O_RDWR | O_CREAT | O_TRUNC | O_NOFOLLOW | O_CLOEXEC, kOwnerOnly));
    if (!fd.valid()) {
        why = Printable(fresh) + ": " + strerror(errno);
        return false;
    }
    errno = 0;
    if (!WriteAndVerify(document, fresh) || !TakeThePlace(path_, fresh, fd.get())) {
        why = Printable(fresh) + ": " + (errno != 0 ? strerror(errno) : "was not written in full");
        unlink(fresh.c_str());
        return false;
    }
    return true;
}

}  // namespace client
