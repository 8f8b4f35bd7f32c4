// SPDX-License-Identifier: MIT
// Reading pinned data once through the cached device, so that the cache takes it in.
//
// Results of the three upper operations: 0 done, 1 failed, 2 interrupted because the volume became
// pending. Offsets and counts are bytes unless a name says otherwise.
#pragma once

#include <stddef.h>
#include <stdint.h>

#include <vector>

#include "daemon/file_mapping.h"
#include "util/pin_bitmap.h"

// A run of set bits; a bit stands for 65536 bytes of the cached device.
struct BitRun {
    uint64_t startBit;
    uint64_t numBits;
};

// Reads the low 32 bits of `numBytes` many bytes from `offset` into the buffer, over and over, for
// nothing but the reading. Returns 0, or -1 when a seek or a read fails or the device ends early.
int ReadFdToNull(int fd, uint64_t offset, uint64_t numBytes, void* buffer, size_t bufferSize);

// The same for a run of bits; its byte count has 32 bits.
int ReadFdToNullByRange(int fd, const BitRun& run, void* buffer, size_t bufferSize);

// Reads the written extents of one file.
int ReadMappingRangesToCache(const char* mountPath, int fd, const FileMappingTable& table,
                             void* buffer, size_t bufferSize);

// Reads the extents of newly pinned files.
int ReadFilesToCache(const char* mountPath, const std::vector<MappedFile>& files);

// Reads every run of set bits of the volume's bitmap.
int ReloadPinBlocksToCache(const PinBitmap* bitmap, const char* cachePath, const char* mountPath);
