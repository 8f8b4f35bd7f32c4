// SPDX-License-Identifier: MIT
// The files of one call of pin or unpin: collected, checked, mapped, compared with the service's
// list, packed into messages, and what is said of that.
#pragma once

#include <string>
#include <vector>

#include "client/request/file_list.h"
#include "client/request/packing.h"
#include "client/show/report.h"

namespace client {

struct FileJob {
    RequestType type = kRequestPinFiles;
    std::vector<Volume> volumes;  // files point into it
    FileList list;
    std::vector<Refusal> passedOver;     // unpin: files that took the place of listed ones
    std::vector<PinnedFile> entries;     // unpin: entries named that no request takes off
    std::vector<PinnedFile> emptied;     // unpin: of those, empty files, while the list may change
    std::vector<std::string> notPinned;  // unpin: paths of files in `list` that were not pinned
    std::vector<std::string> pinnedAlready;  // pin: paths of those that are, or are queued to be
    std::vector<FileRef> repinned;  // files that stay pinned and share units with those unpinned
    std::vector<Message> messages;  // for the files in `list`, then for those pinned again
    size_t sent = 0;                // how many of the messages, from the first
};

// Fills the job's volumes, files and refusals. Returns kExitDone, or another exit status, having
// said why.
int CollectJob(const FileListOptions& options, FileJob& job);

// Moves to the refusals the files that lie right and still cannot be served: their volume keeps no
// pins now, they cannot be mapped, or a pin names a volume's bitmap file. Fills the extents of the
// others.
void RefuseUnservable(FileJob& job);

// Gives the files that no request can name links of plain names; a file that cannot have one moves
// to the refusals. Nothing is linked while there are refusals, unless `keepGoing`.
void LinkFiles(bool keepGoing, FileJob& job);

// Says on standard error what is refused and why, and packs the files. Returns kExitDone when the
// messages may be sent, else the exit status.
int PackJob(bool keepGoing, FileJob& job);

// Adds the messages that pin the job's `repinned` again.
void PackRepinned(FileJob& job);

// Compares what an unpin names with the list, which knows a file by its inode, whereas a request
// names whatever lies at a path now. Files that are not pinned are noted; a file that took the
// place of a listed one is passed over; a refused path that is on the list gets the fate of the
// listed file as its reason. Collects all entries named whose files do not lie there or are empty.
// With `listMayChange` the empty ones are no refusals: the caller takes them off the list.
void MatchWithList(const ConfigState& state, bool listMayChange, FileJob& job);

// Notes which files of a pin are on the list already, or queued to be. They are sent all the same:
// pinning again reads a file into the cache again, and sets the bits of what it has grown by.
void NotePinned(const ConfigState& state, FileJob& job);

// Says on standard error which files were passed over, not pinned, or pinned already.
void SayMatch(const FileJob& job);

// Describes a file: path, volume, inode, size.
Record DescribeFile(const FileRef& file);

// Adds what the job consists of, in the JSON form alone.
void AddJob(const FileJob& job, Record& report);

// Adds what was sent, in words.
void AddSent(const FileJob& job, const char* verb, Record& report);

}  // namespace client
