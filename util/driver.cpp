// SPDX-License-Identifier: MIT
#include "util/driver.h"

#include <fcntl.h>
#include <sys/ioctl.h>

#include "platform/quorflashcache.h"
#include "util/log.h"
#include "util/scoped.h"

namespace {

constexpr size_t kDescriptorBytes = 8;  // as the target's driver counts it

}  // namespace

int DoIoctl(const char* device, unsigned long request, void* argument, size_t argumentSize) {
    LogEnter();
    ScopedFd fd(open(device, O_RDWR));
    if (!fd.valid()) {
        LogError("Open device path (%s) error\n", device);
        return -1;
    }
    int result =
        argument != nullptr ? ioctl(fd.get(), request, argument) : ioctl(fd.get(), request);
    if (result < 0) {
        LogError("Ioctl Error: Send ioctl %d Data (%p) size (%d) to %s, ret=%d\n",
                 static_cast<int>(request), argument, static_cast<int>(argumentSize), device,
                 result);
    }
    LogLeave();
    return result < 0 ? -1 : 0;
}

int BitmapDriverUpdate(PinBitmap* bitmap, const char* device) {
    LogEnter();
    if (bitmap == nullptr || device == nullptr) {
        LogError("Incorrect parameter");
        return -1;
    }
    if (DoIoctl(device, FLASH_CACHE_SET_PIN_BITMAP, bitmap, kDescriptorBytes) != 0) {
        LogError("Ioctl error");
        return -1;
    }
    LogLeave();
    return 0;
}
