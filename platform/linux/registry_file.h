// SPDX-License-Identifier: MIT
// The two files of a cache in the registry: its entry, NAME.json, and beside it the lock,
// NAME.lock, that its process keeps (flock) as long as it lives.
#pragma once

#include <stdint.h>

#include <string>

#include "platform/linux/patience.h"
#include "platform/linux/unique_fd.h"

namespace stand_in {

struct CacheEntry {
    std::string ssd;     // absolute path of the SSD file or device
    std::string device;  // absolute path of the cached device
    int32_t state;       // 1 = established and serving
    int32_t supportPin;  // 1 = keeps pinned blocks
};

// Whether a file of this name is an entry.
bool IsRegistryEntryName(const std::string& name);

// Reads an entry's file. Returns false with errno set.
bool ReadRegistryEntry(const std::string& path, std::string& content);

// Whether a file that cannot be read for this reason is none that a cache wrote: a link, not a
// regular file, too large.
bool IsNoRegistryEntry(int error);

// Turns the file's content into an entry. Returns what is wrong with it, an empty text when nothing
// is.
std::string ParseRegistryEntry(const std::string& content, CacheEntry& cache);

// What is known of the process behind an entry.
enum class Life { kLives, kGone, kUnknown };  // kUnknown: errno says why

// The lock of an entry, and what it says of the process.
class RegistryLock {
  public:
    // Opens and asks the lock that belongs to the entry's file.
    RegistryLock(const std::string& entryPath, Patience& patience);

    const std::string& Path() const { return path_; }
    Life WhatLives() const { return life_; }

    // Whether there is such a file and it could be opened.
    bool Exists() const { return file_.Valid(); }

    // Whether an existing one still says what it said.
    bool SaysTheSame() const;

  private:
    std::string path_;
    UniqueFd file_{-1};
    Life life_ = Life::kUnknown;
};

}  // namespace stand_in
