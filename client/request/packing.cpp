// SPDX-License-Identifier: MIT
#include "client/request/packing.h"

#include <string.h>
#include <sys/stat.h>

#include <sstream>

#include "util/stored_format.h"

namespace client {

namespace {

static_assert(sizeof(Request::data) == kMostListLength + 1, "what may be stored may be sent");

size_t LengthWith(const std::string& list, const std::string& entry) {
    return list.empty() ? entry.size() : list.size() + 1 + entry.size();
}

void Append(std::string& list, const std::string& entry) {
    if (!list.empty()) {
        list += kListSeparator;
    }
    list += entry;
}

// Adds the file to the last of its volume's messages, or to a new one.
void AddFile(RequestType type, const FileRef& file, std::vector<Message>& messages) {
    const std::string& mountPath = file.volume->mountPath;
    const std::string path = PathOnVolume(mountPath, file.relative);
    const std::string entry = StoredEntry(file.relative, file.inode);
    // Either form can be the longer one: the list that is sent repeats the mount path, the stored
    // one has the inode numbers.
    if (messages.empty() || LengthWith(messages.back().data, path) > kMostListLength ||
        LengthWith(messages.back().stored, entry) > kMostListLength) {
        messages.push_back({type, mountPath, "", "", 0, {}});
    }
    Message& message = messages.back();
    Append(message.data, path);
    Append(message.stored, entry);
    ++message.numFiles;
    if (type == kRequestPinFiles) {  // an unpin reads nothing
        message.reading.insert(message.reading.end(), file.extents.begin(), file.extents.end());
    }
}

std::vector<std::string> Split(const std::string& list) {
    std::vector<std::string> entries;
    std::istringstream stream(list);
    for (std::string entry; std::getline(stream, entry, kListSeparator);) {
        entries.push_back(entry);
    }
    return entries;
}

}  // namespace

std::string StoredEntry(const std::string& relative, uint32_t inode) {
    return relative + kInodeMark + std::to_string(inode);
}

std::vector<Message> PackFiles(RequestType type, const std::vector<FileRef>& files) {
    std::vector<Message> all;
    for (const VolumeFiles& group : GroupByVolume(files)) {
        std::vector<Message> messages;
        for (const FileRef& file : group.files) {
            AddFile(type, file, messages);
        }
        all.insert(all.end(), messages.begin(), messages.end());
    }
    return all;
}

std::vector<std::string> TakeOutVanished(Message& message) {
    std::vector<std::string> vanished;
    const std::vector<std::string> paths = Split(message.data);
    const std::vector<std::string> entries = Split(message.stored);
    Message left = VolumeMessage(message.type, message.mountPath);
    for (size_t i = 0; i < paths.size(); ++i) {
        struct stat status = {};
        // Not only what is gone: whatever the service cannot examine ends its intake.
        if (stat(paths[i].c_str(), &status) != 0) {
            vanished.push_back(paths[i]);
            continue;
        }
        Append(left.data, paths[i]);
        Append(left.stored, entries[i]);
        ++left.numFiles;
    }
    if (!vanished.empty()) {
        // Extents of vanished files stay in: they only feed the progress bar.
        left.reading = std::move(message.reading);
        message = std::move(left);
    }
    return vanished;
}

Message VolumeMessage(RequestType type, const std::string& mountPath) {
    return {type, mountPath, "", "", 0, {}};
}

RequestMsg ToRequestMsg(const Message& message) {
    RequestMsg msg;
    memset(&msg, 0, sizeof(msg));  // padding too: it goes through the queue
    msg.mtype = kRequestMsgType;
    msg.body.type = message.type;
    // Cut at the field's last byte; checked files fit.
    message.mountPath.copy(msg.body.mountPath, sizeof(msg.body.mountPath) - 1);
    message.data.copy(msg.body.data, sizeof(msg.body.data) - 1);
    return msg;
}

}  // namespace client
