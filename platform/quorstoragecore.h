// SPDX-License-Identifier: MIT
// libquorstoragecore: storage spaces (volumes) and the configuration and state of their SSD caches.
//
// The records belong to the library; only the named members are read. Their offsets are fixed where
// pointers are 4 bytes wide, which is where the appliance's own libraries run.
#pragma once

#include <stddef.h>
#include <stdint.h>

extern "C" {

// A node of the list of spaces.
struct SpaceInfo {
    char reserved0[128];
    char referencePath[512];  // mount path of the space, NUL-terminated
    char reserved1[232];
    SpaceInfo* next;  // null at the end of the list
};

// How to look a cache configuration up. Zero-filled before use.
struct FlashCacheConfigQuery {
    int32_t selector;  // FLASH_CACHE_CONFIG_BY_SPACE_UUID
    int32_t reserved0[2];
    const char* spaceUuid;
    int32_t reserved1[2];
};

// How to look a cache's status up. Zero-filled before use.
struct FlashCacheStatQuery {
    int32_t selector;  // FLASH_CACHE_STAT_BY_SSD_PATH
    const char* ssdPath;
    int32_t reserved[2];
};

enum { FLASH_CACHE_CONFIG_BY_SPACE_UUID = 2, FLASH_CACHE_STAT_BY_SSD_PATH = 3 };

struct FlashCacheConfig {
    int32_t reserved;
    char* ssdPath;  // the SSD device that backs the cache
};

struct FlashCacheStat {
    int32_t reserved0[2];
    int32_t state;  // 1 = the cache is established and serving
    int32_t reserved1[33];
    int32_t supportPin;  // 1 = the cache keeps pinned blocks
};

static_assert(offsetof(SpaceInfo, referencePath) == 128, "SpaceInfo::referencePath");
static_assert(offsetof(SpaceInfo, next) == 872, "SpaceInfo::next");
static_assert(offsetof(FlashCacheStat, state) == 8, "FlashCacheStat::state");
static_assert(offsetof(FlashCacheStat, supportPin) == 144, "FlashCacheStat::supportPin");
#if UINTPTR_MAX == UINT32_MAX
static_assert(sizeof(FlashCacheConfigQuery) == 24, "configuration query: six words");
static_assert(offsetof(FlashCacheConfigQuery, spaceUuid) == 12, "configuration query: word 3");
static_assert(sizeof(FlashCacheStatQuery) == 16, "status query: four words");
static_assert(offsetof(FlashCacheStatQuery, ssdPath) == 4, "status query: word 1");
static_assert(offsetof(FlashCacheConfig, ssdPath) == 4, "FlashCacheConfig::ssdPath");
#endif

// Stores the list of all spaces in `list` (null when there are none). `kind` is always 1.
// Returns a negative number on failure, leaving `list` alone.
int QUORSpaceInfoEnum(int kind, SpaceInfo** list);

// Releases a whole list; null is allowed.
void QUORSpaceInfoFree(SpaceInfo* list);

// Returns the UUID of the node's space, newly allocated (release with free), or null.
char* QUORSpaceUUIDGet(const SpaceInfo* space);

// Returns 0 when the space has no cache configured, -1 on failure, another value when found. Stores
// the record (release with QUORFlashCacheConfigFree), or null when there is none.
int QUORFlashCacheConfigTmpGet(const FlashCacheConfigQuery* query, FlashCacheConfig** config);

void QUORFlashCacheConfigFree(FlashCacheConfig* config);

// Returns 1 or more on success and stores the record (release with QUORFlashCacheStatFree);
// 0 or less on failure.
int QUORFlashCacheStatGet(const FlashCacheStatQuery* query, FlashCacheStat** stat);

// Takes the address of the record pointer, releases the record and clears the pointer.
void QUORFlashCacheStatFree(FlashCacheStat** stat);

}  // extern "C"
