// SPDX-License-Identifier: MIT
// The files that the cache serves, and what those that are only looked at hold.
#pragma once

#include <stdint.h>
#include <sys/stat.h>

#include <string>

#include "softcache/serve/served_cache.h"

namespace softcache {

// Inode numbers; the root's is the kernel's choice.
enum FileId : uint64_t {
    kRootId = 1,
    kDeviceId,
    kStatsId,
    kControlId,
    kResidentId,
    kPinnedId,
};

struct DirectoryEntry {
    FileId id;
    const char* name;
    mode_t mode;
};

inline constexpr DirectoryEntry kDirectory[] = {
    {kDeviceId, "device", S_IFREG | 0600},      // the cached device
    {kStatsId, "stats.json", S_IFREG | 0444},   // counters and control requests
    {kControlId, "control", S_IFREG | 0200},    // commands, a line each
    {kResidentId, "resident", S_IFREG | 0444},  // bitmap of the resident units
    {kPinnedId, "pinned", S_IFREG | 0444},      // the last pin bitmap, as it was received
};

// The entry of that name or number, or null.
const DirectoryEntry* FindEntry(const char* name);
const DirectoryEntry* FindEntry(uint64_t id);

// Fills `status` for the root or an entry; false when there is no such file. stats.json has the
// size 0, as its text is made when it is opened.
bool DescribeFile(const ServedCache& served, uint64_t id, struct stat& status);

// The contents of stats.json, resident or pinned at this moment; empty for every other file.
std::string FileSnapshot(const ServedCache& served, uint64_t id);

}  // namespace softcache
