// SPDX-License-Identifier: MIT
#include "softcache/serve/directory.h"

#include <string.h>

#include <vector>

namespace softcache {

const DirectoryEntry* FindEntry(const char* name) {
    for (const DirectoryEntry& entry : kDirectory) {
        if (strcmp(entry.name, name) == 0) {
            return &entry;
        }
    }
    return nullptr;
}

const DirectoryEntry* FindEntry(uint64_t id) {
    for (const DirectoryEntry& entry : kDirectory) {
        if (entry.id == id) {
            return &entry;
        }
    }
    return nullptr;
}

static uint64_t FileSize(const ServedCache& served, uint64_t id) {
    switch (id) {
        case kDeviceId:
            return served.cache.DeviceSize();
        case kResidentId:
            return (uint64_t{served.cache.Levels().units} + 7) / 8;
        case kPinnedId:
            return served.record.BitmapBytes();
        default:
            return 0;
    }
}

bool DescribeFile(const ServedCache& served, uint64_t id, struct stat& status) {
    const DirectoryEntry* entry = FindEntry(id);
    if (id != kRootId && entry == nullptr) {
        return false;
    }
    status = {};
    status.st_ino = static_cast<ino_t>(id);
    status.st_mode = entry == nullptr ? S_IFDIR | 0755 : entry->mode;
    status.st_nlink = entry == nullptr ? 2 : 1;
    status.st_size = static_cast<off_t>(FileSize(served, id));
    status.st_blocks = static_cast<blkcnt_t>((status.st_size + 511) / 512);
    status.st_blksize = kUnitSize;
    return true;
}

static std::string Bytes(const std::vector<uint8_t>& bitmap) {
    return std::string(bitmap.begin(), bitmap.end());
}

std::string FileSnapshot(const ServedCache& served, uint64_t id) {
    switch (id) {
        case kStatsId:
            return StatsText(served);
        case kResidentId:
            return Bytes(served.cache.ResidentBitmap());
        case kPinnedId:
            return Bytes(served.record.Bitmap());
        default:
            return "";
    }
}

}  // namespace softcache
