// SPDX-License-Identifier: MIT
// libquorflashcache: where a cache's device is, and the driver's control requests.
#pragma once

#include <stddef.h>

extern "C" {

// Writes the path of the block device that is cached on the SSD at `ssdPath` into `path`, a buffer
// of `size` bytes. Returns exactly 1 on success.
int QUORFlashcacheGetCachePath(const char* ssdPath, char* path, size_t size);

}  // extern "C"
