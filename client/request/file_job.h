// SPDX-License-Identifier: MIT
// The files of one call of pin or unpin: collected, checked, mapped and packed into messages.
#pragma once

#include <string>
#include <vector>

#include "client/pins/pinned_file.h"
#include "client/request/file_list.h"
#include "client/request/packing.h"
#include "client/volume/mapping.h"

namespace client {

struct FileJob {
    RequestType type = kRequestPinFiles;
    std::vector<Volume> volumes;  // files point into it
    FileList list;
    std::vector<Refusal> passedOver;     // unpin: files that took the place of listed ones
    std::vector<PinnedFile> entries;     // unpin: entries named whose files do not lie there
    std::vector<std::string> notPinned;  // unpin: paths of files in `list` that were not pinned
    std::vector<FileRef> repinned;  // files that stay pinned and share units with those unpinned
    std::vector<Message> messages;  // for the files in `list`, then for those pinned again
    size_t sent = 0;                // how many of the messages, from the first
};

// Fills the job's volumes, files and refusals. Returns kExitDone, or another exit status, having
// said why.
int CollectJob(const FileListOptions& options, FileJob& job);

// Moves to the refusals the files that lie right and still cannot be served: their volume keeps no
// pins now, or they cannot be mapped. Fills the extents of the others.
void RefuseUnservable(FileJob& job);

// Gives the files that no request can name links of plain names; a file that cannot have one moves
// to the refusals. Nothing is linked while there are refusals, unless `keepGoing`.
void LinkFiles(bool keepGoing, FileJob& job);

// Says on standard error what is refused and why, and packs the files. Returns kExitDone when the
// messages may be sent, else the exit status.
int PackJob(bool keepGoing, FileJob& job);

// Adds the messages that pin the job's `repinned` again.
void PackRepinned(FileJob& job);

// Maps the file. Returns false, with the reason in `why`, when the service could not map it.
bool MapForRequest(Mapper& mapper, FileRef& file, std::string& why);

}  // namespace client
