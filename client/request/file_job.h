// SPDX-License-Identifier: MIT
// The files of one call of pin or unpin: collected, checked, mapped and packed into messages.
#pragma once

#include <json/json.h>

#include <vector>

#include "client/request/file_list.h"
#include "client/volume/mapping.h"
#include "client/request/packing.h"

namespace client {

struct FileJob {
    RequestType type = kRequestPinFiles;
    std::vector<Volume> volumes;  // files point into it
    Mapper mapper;
    FileList list;
    std::vector<Message> messages;  // for the list's files
    std::vector<FileRef> mended;    // files that stay pinned and share units with those unpinned
    std::vector<Message> mending;   // messages that pin them again
    bool mendUnknown = false;       // which files stay pinned cannot be told
    std::vector<Message> sending;   // both kinds, as they are sent
    size_t sent = 0;                // of those
};

// Fills the job's volumes, files and refusals. Returns kExitDone, or the exit status of what kept
// it from that, having said so.
int CollectJob(const FileListOptions& options, FileJob& job);

// Says on standard error what is refused and why, and packs the files. `others` tells that there is
// something to do besides them. Returns kExitDone when the messages may be sent, else the exit
// status.
int PackJob(bool keepGoing, bool others, FileJob& job);

// Maps the file; false, with the reason in `why`, when the service could not.
bool MapForRequest(Mapper& mapper, FileRef& file, std::string& why);

Json::Value FileToJson(const FileRef& file);
Json::Value RefusalsToJson(const std::vector<Refusal>& refusals);

}  // namespace client
