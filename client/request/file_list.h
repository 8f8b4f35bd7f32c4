// SPDX-License-Identifier: MIT
// The files that are meant, from arguments, lists, patterns and directories.
#pragma once

#include <string>
#include <vector>

#include "client/request/file_check.h"

namespace client {

struct FileListOptions {
    std::vector<std::string> paths;  // arguments
    std::vector<std::string> lists;  // files that hold paths; "-" is standard input
    bool nulSeparated = false;       // lists: NUL instead of newline, CRLF and # comments
    bool recursive = false;          // directories: all files below them
    bool patterns = false;           // arguments are patterns, expanded here
    bool link = false;               // take what a link of plain name would make nameable
};

struct FileList {
    std::vector<FileRef> files;      // in order, none twice
    std::vector<Refusal> refusals;   // in order
    size_t linkable = 0;             // refused, and would not be with `link`
    std::vector<std::string> notes;  // what was left out below directories, in words
};

// Collects and checks the files. Returns false, with the reason in `why`, when a list cannot be
// read or has a NUL in a line.
bool CollectFiles(const FileListOptions& options, const std::vector<Volume>& volumes,
                  FileList& list, std::string& why);

}  // namespace client
