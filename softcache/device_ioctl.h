// SPDX-License-Identifier: MIT
// The requests that the cached device answers by ioctl: its size, and the two control requests.
#pragma once

#include <stddef.h>
#include <stdint.h>

#include "softcache/caller_memory.h"
#include "softcache/served_cache.h"

namespace softcache {

// What the kernel is to copy to the caller on return.
struct IoctlReply {
    uint64_t value = 0;
    size_t bytes = 0;  // of `value`; 0 = nothing
};

// Answers `request` of `caller` with the argument `argument`:
// - BLKGETSIZE64 in either width of its number: always a 64-bit size, as the block layer does it;
// - FLASH_CACHE_SET_PIN_BITMAP: puts the bitmap in force. -EINVAL when it is longer than the
// device's
//   own (one bit a unit, a tail of under 512 KiB has none); where it is shorter the rest is
//   unpinned; -errno when it cannot be kept on disk;
// - FLASH_CACHE_UNPIN_RANGES: records the ranges. What is pinned is the bitmap's business alone;
// - anything else: -ENOTTY.
// -EFAULT when the caller's memory cannot be reached, -EIO when the request was asked to fail. A
// refused request changes nothing.
int DeviceIoctl(ServedCache& served, const Caller& caller, uint32_t request, uint64_t argument,
                IoctlReply& reply);

}  // namespace softcache
