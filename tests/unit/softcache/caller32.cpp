// SPDX-License-Identifier: MIT
// A 32-bit process that sends its requests to a cached device: what a 32-bit service does to a
// 64-bit cache. Argument: the device. Prints the size it was told; exits with 0 when every request
// went through and a bad one did not.
#include <errno.h>
#include <fcntl.h>
#include <linux/fs.h>
#include <stdint.h>
#include <stdio.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include "platform/quorflashcache.h"

static_assert(sizeof(void*) == 4, "this program is about 4-byte pointers");

struct PinDescriptor {
    const uint8_t* data;
    uint32_t size;
};
static_assert(sizeof(PinDescriptor) == 8, "pointer and length");

static int Fail(const char* what) {
    perror(what);
    return 1;
}

int main(int argc, char** argv) {
    const int device = argc == 2 ? open(argv[1], O_RDWR | O_CLOEXEC) : -1;
    if (device < 0) {
        return Fail("open");
    }
    uint64_t size[2] = {UINT64_MAX, UINT64_C(0x1122334455667788)};
    if (ioctl(device, BLKGETSIZE64, size) != 0) {
        return Fail("BLKGETSIZE64");
    }
    if (size[1] != UINT64_C(0x1122334455667788)) {
        return Fail("more than 8 bytes written");
    }
    printf("%llu\n", static_cast<unsigned long long>(size[0]));

    const uint8_t bitmap[] = {0x02, 0x00, 0x00, 0x80};
    PinDescriptor descriptor = {bitmap, sizeof(bitmap)};
    if (ioctl(device, FLASH_CACHE_SET_PIN_BITMAP, &descriptor) != 0) {
        return Fail("set pin bitmap");
    }
    UnpinRange batch[kUnpinBatchEntries] = {{UINT64_C(0x123456789), 8}, {128, 256}};
    if (ioctl(device, FLASH_CACHE_UNPIN_RANGES, batch) != 0) {
        return Fail("unpin ranges");
    }
    descriptor.data = nullptr;
    if (ioctl(device, FLASH_CACHE_SET_PIN_BITMAP, &descriptor) == 0 || errno != EFAULT) {
        return Fail("a bitmap at address 0");
    }
    close(device);
    return 0;
}
