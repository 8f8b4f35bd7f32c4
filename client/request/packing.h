// SPDX-License-Identifier: MIT
// Packing files into request messages, as many into each as fit: the service rests for a second
// after every request.
#pragma once

#include <stddef.h>

#include <string>
#include <vector>

#include "client/volume/file_ref.h"
#include "util/request.h"

namespace client {

// One request message, as texts.
struct Message {
    RequestType type;
    std::string mountPath;
    std::string data;    // absolute paths joined by ";"; empty for requests about a volume
    std::string stored;  // what the service stores for it: "path#inode" joined by ";"
    size_t numFiles;
    std::vector<FileMappingEntry> reading;  // the extents that the service will read, in order
};

// Returns the file's entry in the stored form.
std::string StoredEntry(const std::string& relative, uint32_t inode);

// Packs files that have passed their checks into messages. Each file goes into exactly one; the
// files of a volume keep their order, and the volumes come in the order of their first files.
std::vector<Message> PackFiles(RequestType type, const std::vector<FileRef>& files);

// Removes from the message the files that have vanished, as a path with nothing there ends the
// service's intake. Returns their paths.
std::vector<std::string> TakeOutVanished(Message& message);

// Returns a request about a whole volume.
Message VolumeMessage(RequestType type, const std::string& mountPath);

// Returns the message in the form that the queue carries. The texts must fit.
RequestMsg ToRequestMsg(const Message& message);

}  // namespace client
