// SPDX-License-Identifier: MIT
// The identity of a request's files: the data text of a stored request.
//
// A data text is a list of entries (util/stored_format.h); an entry is the file's path relative to
// the mount path, and the low 32 bits of its inode number in decimal.
#pragma once

#include <stddef.h>

#include <string>
#include <vector>

#include "util/request.h"
#include "util/stored_format.h"

struct FileInfo {
    char szRelativePath[kPathBufferSize];  // relative to the volume's mount path, NUL-terminated
    unsigned long inodeNum;                // when the request was stored; 32 bits
};

// Returns the file's path below the mount path, newly allocated (release with free), or null when
// the file does not lie below it. The path ends at its first white space.
char* FileGetRelativePathByMountPath(const char* mountPath, const char* filePath);

// Turns absolute paths joined by ";" into a data text in `fileInodeList`, a zero-filled buffer of
// `size` bytes. The text ends before the first entry that does not fit, with an error that names
// the file. Returns 0; or -1 when a path does not lie below the mount path or a file cannot be
// stat-ed (entries written before stay).
int AbsolutePathsToFileInodeList(const char* mountPath, const char* absolutePaths,
                                 char* fileInodeList, size_t size);

// Replaces `tokens` by the non-empty pieces of the text's first 1023 characters.
void StringSplit(const std::string& text, const char* delimiters, std::vector<std::string>& tokens);

// Appends a record for each entry of a data text. Returns 0; or -1 at the first malformed entry,
// with the records before it appended.
int RequestDataGetFileInfos(const char* data, std::vector<FileInfo>& infos);

// Returns the request in one line for the log, cut to 1023 characters.
std::string RequestToString(const Request& request);
