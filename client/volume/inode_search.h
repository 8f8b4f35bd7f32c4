// SPDX-License-Identifier: MIT
// Finding files of a volume by their inode numbers, when they do not lie where they are listed.
#pragma once

#include <stdint.h>

#include <map>
#include <set>
#include <string>

namespace client {

struct InodeSearch {
    std::map<uint32_t, std::string> paths;  // of the files that were found
    std::string unreadable;  // a directory that could not be searched, and why; empty when none
};

// Searches the whole volume for regular files with these inode numbers (low halves). The bitmap
// file is written whenever something is pinned: a file that was born later than its last change
// only inherited the number of a listed file, and does not count.
InodeSearch SearchVolume(const std::string& mountPath, const std::set<uint32_t>& inodes,
                         const std::string& bitmapPath);

}  // namespace client
