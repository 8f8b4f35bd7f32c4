// SPDX-License-Identifier: MIT
// Packing files into request messages: as many a message as fit, since the service rests a second
// after each request.
#pragma once

#include <stddef.h>

#include <string>
#include <vector>

#include "client/request/file_check.h"
#include "util/request.h"

namespace client {

// One request message, in texts.
struct Message {
    RequestType type;
    std::string mountPath;
    std::string data;    // absolute paths joined by ";"; empty for requests about a volume
    std::string stored;  // what the service stores for it: "path#inode" joined by ";"
    size_t numFiles;
    std::vector<FileMappingEntry> reading;  // what it makes the service read, in order
};

// Returns the file's entry in the stored form.
std::string StoredEntry(const std::string& relative, uint32_t inode);

// Packs the files, which must have passed their checks, into messages: each file in exactly one, in
// the order given within its volume; the volumes in the order of their first file.
std::vector<Message> PackFiles(RequestType type, const std::vector<FileRef>& files);

// Takes out of the message the files at whose path there is nothing any more: such a path ends the
// service's intake. Returns those paths.
std::vector<std::string> TakeOutVanished(Message& message);

// Returns a request about a whole volume.
Message VolumeMessage(RequestType type, const std::string& mountPath);

// Returns the message as it goes through the queue. The texts must fit.
RequestMsg ToRequestMsg(const Message& message);

}  // namespace client
