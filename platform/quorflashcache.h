// SPDX-License-Identifier: MIT
// libquorflashcache: where a cache's device is, and the driver's control requests.
#pragma once

#include <stddef.h>
#include <stdint.h>

// Control requests of the flash-cache driver, sent by ioctl on the cached block device. The numbers
// encode neither a direction nor a size.
enum {
    FLASH_CACHE_SET_PIN_BITMAP = 0xFECF,  // argument: the bitmap descriptor
    FLASH_CACHE_UNPIN_RANGES = 0xFED0,    // argument: 512 UnpinRange entries, 8192 bytes
};

// The bitmap descriptor is the address of the bitmap's bytes in the caller's memory, in the
// caller's pointer width, followed by their number as an unsigned 32-bit integer. Bit b of the
// bitmap (least significant bit first) stands for sectors 128 * b to 128 * b + 127 of the cached
// device.

// One released range. In a batch the first all-zero entry ends the list.
struct UnpinRange {
    uint64_t startSector;  // first 512-byte sector on the cached device
    uint64_t numSectors;
};

constexpr size_t kUnpinBatchEntries = 512;
constexpr size_t kUnpinBatchBytes = kUnpinBatchEntries * sizeof(UnpinRange);

static_assert(FLASH_CACHE_SET_PIN_BITMAP == (0xFE << 8 | 0xCF), "type 0xFE, number 0xCF");
static_assert(FLASH_CACHE_UNPIN_RANGES == (0xFE << 8 | 0xD0), "type 0xFE, number 0xD0");
static_assert(sizeof(UnpinRange) == 16, "UnpinRange: two 64-bit words");
static_assert(offsetof(UnpinRange, numSectors) == 8, "UnpinRange::numSectors");
static_assert(kUnpinBatchBytes == 8192, "an unpin batch is 8192 bytes");

extern "C" {

// Writes the path of the block device that is cached on the SSD at `ssdPath` into `path`, a buffer
// of `size` bytes. Returns exactly 1 on success.
int QUORFlashcacheGetCachePath(const char* ssdPath, char* path, size_t size);

}  // extern "C"
