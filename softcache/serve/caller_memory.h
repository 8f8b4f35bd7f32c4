// SPDX-License-Identifier: MIT
// The memory of the process that sent a control request, and the records found there.
//
// The control requests' numbers encode neither a direction nor a size, so the kernel copies nothing
// for us; and what they point to holds pointers in the caller's own width.
#pragma once

#include <stddef.h>
#include <stdint.h>
#include <sys/types.h>

#include <vector>

#include "platform/quorflashcache.h"

namespace softcache {

struct Caller {
    pid_t pid;              // thread that made the call, as this process sees it; 0 = out of sight
    unsigned pointerBytes;  // 4 or 8
};

// Copy `size` bytes from or to `address` of the caller. Return 0, or -EFAULT when not every byte
// could be reached, for whatever reason. Call them with no lock held: touching foreign memory can
// wait for anything, even for a read of the cached device itself.
int ReadCaller(const Caller& caller, uint64_t address, void* data, size_t size);
int WriteCaller(const Caller& caller, uint64_t address, const void* data, size_t size);

// The argument of FLASH_CACHE_SET_PIN_BITMAP.
struct BitmapDescriptor {
    uint64_t address;  // of the bitmap's bytes, in the caller's memory
    uint32_t bytes;
};

constexpr size_t kMaxDescriptorBytes = 12;

// What a caller of that pointer width stores: the pointer, then 4 bytes of length. 8 or 12.
constexpr size_t DescriptorBytes(unsigned pointerBytes) {
    return pointerBytes + sizeof(uint32_t);
}

// `raw` holds DescriptorBytes(pointerBytes) bytes.
BitmapDescriptor ParseDescriptor(const uint8_t* raw, unsigned pointerBytes);

// The ranges of an unpin batch of kUnpinBatchBytes: those before the first all-zero entry.
std::vector<UnpinRange> ParseUnpinBatch(const uint8_t* raw);

}  // namespace softcache
