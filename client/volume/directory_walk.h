// SPDX-License-Identifier: MIT
// What lies below a directory.
#pragma once

#include <sys/stat.h>

#include <functional>
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

// Calls `visit` for all below the directory that is no directory, in the order of names, and for
// what cannot be read. No link is followed. Returns how many directories on other file systems were
// not entered.
//
// The C library's own walker leaves out, without a word, what does not fit the 32-bit target's
// narrow directory entries: inode numbers and offsets that some file systems make of 64 bits.
size_t WalkBelow(const std::string& directory, const std::function<void(const WalkEntry&)>& visit);

}  // namespace client
