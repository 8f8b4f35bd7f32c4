// SPDX-License-Identifier: MIT
#include "softcache/serve/device_ioctl.h"

#include <errno.h>
#include <linux/ioctl.h>

namespace softcache {

// The number carries the size of the caller's size_t, though the value is 64 bits wide for
// everybody.
constexpr uint32_t kGetSizeWide = _IOR(0x12, 114, uint64_t);
constexpr uint32_t kGetSizeNarrow = _IOR(0x12, 114, uint32_t);

// Reads the descriptor, then the bitmap. `length` is stored as soon as it is known.
static int ReadBitmap(const BlockCache& cache, const Caller& caller, uint64_t argument,
                      uint32_t& length, std::vector<uint8_t>& bitmap) {
    uint8_t raw[kMaxDescriptorBytes];
    int result = ReadCaller(caller, argument, raw, DescriptorBytes(caller.pointerBytes));
    if (result != 0) {
        return result;
    }
    const BitmapDescriptor descriptor = ParseDescriptor(raw, caller.pointerBytes);
    length = descriptor.bytes;
    if (length > cache.MaxPinBytes()) {
        return -EINVAL;
    }
    bitmap.resize(length);
    return ReadCaller(caller, descriptor.address, bitmap.data(), bitmap.size());
}

static int SetPinBitmap(ServedCache& served, const Caller& caller, uint64_t argument) {
    uint32_t length = 0;
    std::vector<uint8_t> bitmap;
    int result = ReadBitmap(served.cache, caller, argument, length, bitmap);

    const std::lock_guard<std::mutex> lock(served.controlMutex);
    if (served.faults.TakeControl()) {
        result = -EIO;
    }
    if (result == 0) {
        result = served.ApplyPins(bitmap);
    }
    served.record.AddBitmap(result, length, std::move(bitmap));
    return result;
}

static int UnpinRanges(ServedCache& served, const Caller& caller, uint64_t argument) {
    uint8_t raw[kUnpinBatchBytes];
    std::vector<UnpinRange> ranges;
    int result = ReadCaller(caller, argument, raw, sizeof(raw));
    if (result == 0) {
        ranges = ParseUnpinBatch(raw);
    }

    const std::lock_guard<std::mutex> lock(served.controlMutex);
    if (served.faults.TakeControl()) {
        result = -EIO;
    }
    served.record.AddUnpin(result, ranges);
    return result;
}

int DeviceIoctl(ServedCache& served, const Caller& caller, uint32_t request, uint64_t argument,
                IoctlReply& reply) {
    const uint64_t size = served.cache.DeviceSize();
    switch (request) {
        case kGetSizeWide:
            reply = {size, sizeof(size)};
            return 0;
        case kGetSizeNarrow:
            // The kernel would copy the 4 bytes that the number speaks of.
            return WriteCaller(caller, argument, &size, sizeof(size));
        case FLASH_CACHE_SET_PIN_BITMAP:
            return SetPinBitmap(served, caller, argument);
        case FLASH_CACHE_UNPIN_RANGES:
            return UnpinRanges(served, caller, argument);
        default:
            return -ENOTTY;
    }
}

}  // namespace softcache
