// SPDX-License-Identifier: MIT
#include "client/service/stored_list.h"

#include <errno.h>
#include <fcntl.h>
#include <json/json.h>
#include <stdlib.h>
#include <string.h>
#include <sys/file.h>

#include "client/show/output.h"
#include "client/show/text.h"
#include "client/volume/replace_file.h"
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
            // An inode is listed once: of two entries the later stays.
            members[std::to_string(file.inode)] = file.relative;
        }
        // The service takes a volume without files off the list, too.
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
    return ReplaceFile(target, JsonToStyledText(document), model, why);
}

bool StoredList::LockAsItIs(const std::string& path, std::string& why) {
    const CString directory(realpath(DirectoryOf(path).c_str(), nullptr));
    const CString resolved(realpath(path.c_str(), nullptr));
    if (!resolved && (errno != ENOENT || !directory)) {
        why = "configuration file " + Printable(path) + ": " + strerror(errno);
        return false;
    }
    // A link stays a link, and the file that it leads to is replaced.
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
    // Read anew: all but the lists stays as it is by now.
    if (!ReadStore(path_, document, why)) {
        return false;
    }
    PutLists(lists, document);
    return WriteStore(document, path_, path_, why);
}

bool StoredList::Forget(const std::string& mountPath, std::string& why) {
    Json::Value document;
    if (!ReadStore(path_, document, why)) {
        return false;
    }
    PutLists({{mountPath, {}}}, document);
    DropRequests(mountPath, document);
    return WriteStore(document, path_, path_, why);
}

}  // namespace client
