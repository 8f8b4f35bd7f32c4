// SPDX-License-Identifier: MIT
// Questions about storage spaces (volumes) and their SSD caches, asked of the platform afresh at
// every call.
//
// A space has a mount path (its reference path), a UUID, and, when it has a cache, the path of the
// SSD behind the cache and the path of the cached block device (the cache path). Every text
// returned is newly allocated and released with free; null means failed or not found, and only the
// log shows which. Yes-or-no results are 1 and 0.
#pragma once

#include "platform/quorstoragecore.h"

// UUID of the space with exactly this mount path.
char* SpaceGetUUID(const char* mountPath);

// Mount path of the space with exactly this UUID.
char* SpaceGetReferencePath(const char* uuid);

// Configuration of the space's cache, or null; release it with QUORFlashCacheConfigFree.
FlashCacheConfig* SpaceGetCacheConfig(const char* uuid);

int SpaceHasCache(const char* uuid);

char* SpaceGetCacheSsdPath(const char* uuid);

// Path of the bitmap file in a directory, cut to 511 characters.
char* BitmapPathByDirectory(const char* directory);

// Path of the space's bitmap file, at the top of the volume.
char* SpaceGetBitmapPath(const char* uuid);

// 1 when the space's cache is established and keeps pinned blocks.
int SpaceHasCacheAndSupportPinByUUID(const char* uuid);
int SpaceHasCacheAndSupportPin(const char* mountPath);

// Path of the cached block device.
char* SpaceGetCachePath(const char* uuid);
char* SpaceGetCachePathByMountPath(const char* mountPath);
