// SPDX-License-Identifier: MIT
// The two files a cache stands on, and the directory it is mounted on: checked and opened.
#pragma once

#include <stdint.h>

#include <string>

#include "softcache/store/file_io.h"

namespace softcache {

// A size in bytes: digits and at most one of K, M, G, T (powers of 1024). False for anything else
// and for what does not fit into 64 bits.
bool ParseSize(const std::string& text, uint64_t& bytes);

// An empty text, or why the SSD cannot have this size: whole units, at least one.
std::string WhyNotCacheSize(uint64_t bytes);

// These return an empty text, or one line that names the object and what is wrong with it; then
// nothing is stored.

// Opens the backing, a regular file or a block device, for this process alone.
std::string OpenBacking(const std::string& path, OwnedFd& backing, uint64_t& deviceSize);

// Why the same file cannot be both, named by two paths.
std::string WhyNotTwoFiles(const std::string& backing, const std::string& ssd);

// Opens the SSD for this process alone: a block device, or a regular file, made, empty, when it is
// missing. What it holds stays.
std::string OpenSsd(const std::string& path, OwnedFd& ssd, bool& isBlockDevice);

// Gives an SSD file its length, with its space allocated where its file system can. Returns an
// empty text, or what is wrong without its name, and then the file is as long as it was.
std::string SizeSsdFile(int fd, uint64_t size);

// Where a cache is mounted unless another place is named.
std::string DefaultMountPoint(const std::string& name);

// Checks that a directory can be mounted on, and stores its absolute path, free of links. The dead
// mount of an earlier cache of this name is taken away.
std::string CheckMountPoint(const std::string& path, const std::string& name,
                            std::string& absolute);

// The absolute path of an existing file, free of links; the path itself when that fails.
std::string AbsolutePath(const std::string& path);

}  // namespace softcache
