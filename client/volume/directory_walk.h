// SPDX-License-Identifier: MIT
// What lies below a directory, and files of a volume found by their inode numbers.
#pragma once

#include <stdint.h>
#include <sys/stat.h>

#include <functional>
#include <map>
#include <set>
#include <string>
#include <vector>

namespace client {

// Stores the names in a directory, in order, without "." and "..". Returns 0, or errno.
int ListNames(const std::string& directory, std::vector<std::string>& names);

struct WalkEntry {
    std::string path;
    struct stat status;
    int error;  // errno when it, or the directory that it is, cannot be read; else 0
};

// Calls `visit`, in the order of names, for everything below the directory that is not itself a
// directory, and for whatever cannot be read. Follows no link. Returns the directories on other
// file systems, which were not entered.
//
// The C library has a walker of its own, but on the 32-bit target it silently leaves out entries
// whose inode numbers or offsets need 64 bits, as they do on some file systems.
std::vector<std::string> WalkBelow(const std::string& directory,
                                   const std::function<void(const WalkEntry&)>& visit);

struct InodeSearch {
    std::map<uint32_t, std::string> paths;  // of the files that were found
    std::string unreadable;  // a directory that could not be searched, and why; empty when none
};

// Searches the whole volume for regular files with these inode numbers (low halves). The bitmap
// file is written whenever something is pinned: a file that was born later than its last change
// only inherited the number of a listed file, and does not count. A directory that is hidden by
// another mount counts as one that could not be searched, unless it is known to hold none of them.
InodeSearch SearchVolume(const std::string& mountPath, const std::set<uint32_t>& inodes,
                         const std::string& bitmapPath);

}  // namespace client
