// SPDX-License-Identifier: MIT
#include "softcache/serve/caller_memory.h"

#include <errno.h>
#include <string.h>
#include <sys/uio.h>

namespace softcache {

// False where this process cannot even name the address: a 32-bit cache, a 64-bit caller.
static bool RemoteVector(const Caller& caller, uint64_t address, size_t size, iovec& remote) {
    if (caller.pid <= 0 || address > UINTPTR_MAX || caller.pointerBytes > sizeof(void*)) {
        return false;
    }
    // Not one of this process's pointers, so its bits are put there and no cast.
    const auto pointer = static_cast<uintptr_t>(address);
    memcpy(&remote.iov_base, &pointer, sizeof(pointer));
    remote.iov_len = size;
    return true;
}

int ReadCaller(const Caller& caller, uint64_t address, void* data, size_t size) {
    const iovec local = {data, size};
    iovec remote;
    if (size == 0) {
        return 0;
    }
    if (!RemoteVector(caller, address, size, remote)) {
        return -EFAULT;
    }
    const ssize_t done = process_vm_readv(caller.pid, &local, 1, &remote, 1, 0);
    return done == static_cast<ssize_t>(size) ? 0 : -EFAULT;
}

int WriteCaller(const Caller& caller, uint64_t address, const void* data, size_t size) {
    const iovec local = {const_cast<void*>(data), size};
    iovec remote;
    if (!RemoteVector(caller, address, size, remote)) {
        return -EFAULT;
    }
    const ssize_t done = process_vm_writev(caller.pid, &local, 1, &remote, 1, 0);
    return done == static_cast<ssize_t>(size) ? 0 : -EFAULT;
}

BitmapDescriptor ParseDescriptor(const uint8_t* raw, unsigned pointerBytes) {
    BitmapDescriptor descriptor{};
    if (pointerBytes == sizeof(uint32_t)) {
        uint32_t address;
        memcpy(&address, raw, sizeof(address));
        descriptor.address = address;
    } else {
        memcpy(&descriptor.address, raw, sizeof(descriptor.address));
    }
    memcpy(&descriptor.bytes, raw + pointerBytes, sizeof(descriptor.bytes));
    return descriptor;
}

std::vector<UnpinRange> ParseUnpinBatch(const uint8_t* raw) {
    std::vector<UnpinRange> ranges;
    for (size_t entry = 0; entry < kUnpinBatchEntries; ++entry) {
        UnpinRange range;
        memcpy(&range, raw + entry * sizeof(range), sizeof(range));
        if (range.startSector == 0 && range.numSectors == 0) {
            break;
        }
        ranges.push_back(range);
    }
    return ranges;
}

}  // namespace softcache
