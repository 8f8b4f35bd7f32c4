// SPDX-License-Identifier: MIT
// The requests that the cached device answers by ioctl: its size, and the two control requests.
#pragma once

#include <stddef.h>
#include <stdint.h>

#include "softcache/serve/caller_memory.h"
#include "softcache/serve/served_cache.h"

namespace softcache {

// What the kernel is to copy to the caller on return.
struct IoctlReply {
    uint64_t value = 0;
    size_t bytes = 0;  // of `value`; 0 = nothing
};

// Answers `request` of `caller` with the argument `argument`:
//
// - BLKGETSIZE64, in either width of its number, gives a 64-bit size, as the block layer does.
// - FLASH_CACHE_SET_PIN_BITMAP puts the bitmap in force. Units beyond a shorter one are not pinned.
//   -EINVAL when it is longer than BlockCache::MaxPinBytes, -errno when it cannot be stored.
// - FLASH_CACHE_UNPIN_RANGES records the ranges. It unpins nothing: the bitmap alone does that.
// - Anything else is -ENOTTY.
//
// Both control requests: -EFAULT when the caller's memory cannot be reached, -EIO when the request
// was ordered to fail. A refused request changes nothing.
int DeviceIoctl(ServedCache& served, const Caller& caller, uint32_t request, uint64_t argument,
                IoctlReply& reply);

}  // namespace softcache
