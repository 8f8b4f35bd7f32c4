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

// Calls `visit`, in the order of names, for everything below the directory that is not itself a
// directory, and for whatever cannot be read. Follows no link. Returns how many directories on
// other file systems were not entered.
//
// The C library has a walker of its own, but on the 32-bit target it silently leaves out entries
// whose inode numbers or offsets need 64 bits, as they do on some file systems.
size_t WalkBelow(const std::string& directory, const std::function<void(const WalkEntry&)>& visit);

}  // namespace client
