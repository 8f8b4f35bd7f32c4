// SPDX-License-Identifier: MIT
#include "util/pin_bitmap.h"

#include <errno.h>
#include <fcntl.h>
#include <linux/fs.h>
#include <stdlib.h>
#include <string.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>

#include "util/file.h"
#include "util/foreign_place.h"
#include "util/log.h"
#include "util/scoped.h"
#include "util/space.h"

namespace {

#if UINTPTR_MAX == UINT32_MAX
static_assert(BLKGETSIZE64 == 0x80041272, "the device size request of a 32-bit caller");
#endif
static_assert(sizeof(off_t) == 8, "files and devices are larger than 2 GiB");

constexpr unsigned kDeviceToBitmapShift = 19;  // 8 bits of 64 KiB to a byte
constexpr uint64_t kFilePieceBytes = 4096;
constexpr int kFileMode = 0644;
constexpr int kOperationSet = 1;

// Returns false when there is no memory.
bool AllocateData(PinBitmap* bitmap, uint64_t size) {
    // One byte at least, so that an empty bitmap is not taken for a failed allocation.
    bitmap->data =
        size > UINT32_MAX
            ? nullptr
            : static_cast<uint8_t*>(calloc(std::max(static_cast<size_t>(size), size_t{1}), 1));
    if (bitmap->data == nullptr) {
        return false;
    }
    bitmap->size = static_cast<uint32_t>(size);
    return true;
}

// Sets or clears the bits that the mask names.
void ChangeByte(uint8_t& byte, unsigned mask, bool set) {
    byte = static_cast<uint8_t>(set ? byte | mask : byte & ~mask);
}

int GiveUpBitmap(PinBitmap* bitmap) {
    BitmapFree(bitmap);
    errno = EIO;
    return -1;
}

}  // namespace

int DeviceGetSizeByte(const char* device, uint64_t* size) {
    uint64_t bytes = 0;
    ScopedFd fd(open(device, O_RDONLY));

    if (!fd.valid()) {
        LogError("Can't open device (%s)", device);
        return -1;
    }
    if (ioctl(fd.get(), BLKGETSIZE64, &bytes) < 0) {
        LogError("Can't get size of device (%s)", device);
        return -1;
    }
    *size = bytes;
    return 0;
}

int BitmapGetNeededSizeByte(const char* device, uint64_t* size) {
    uint64_t deviceSize = 0;

    LogEnter();
    if (DeviceGetSizeByte(device, &deviceSize) != 0) {
        LogError("Can't get block device path");
        return -1;
    }
    LogVerbose("Disk size = %llu byte", static_cast<unsigned long long>(deviceSize));
    *size = deviceSize >> kDeviceToBitmapShift;
    LogLeave();
    return 0;
}

// One long function: a line of the log names the function that its statement stands in, and these
// are all known by this one.
// NOLINTNEXTLINE(readability-function-size)
int BitmapMemAllocateAndInit(const char* spaceUuid, PinBitmap** bitmap, uint8_t* sizeChanged) {
    uint64_t size = 0;
    uint64_t fileSize = 0;

    *sizeChanged = 0;
    LogEnter();
    CString bitmapPath(SpaceGetBitmapPath(spaceUuid));
    if (bitmapPath == nullptr) {
        LogError("Can't get bitmap path");
        errno = ENOENT;
        return -1;
    }
    CString cachePath(SpaceGetCachePath(spaceUuid));
    if (cachePath == nullptr) {
        LogError("Can't get cache path");
        errno = ENOENT;
        return -1;
    }
    auto* record = static_cast<PinBitmap*>(calloc(1, sizeof(PinBitmap)));
    *bitmap = record;
    if (record == nullptr) {
        LogError("Allocate bitmap data failed");
        errno = ENOMEM;
        return -1;
    }
    if (BitmapGetNeededSizeByte(cachePath.get(), &size) != 0) {
        LogError("Can't get needed bitmap sizeof");
        bitmapPath.reset();
        cachePath.reset();
        errno = ENODEV;  // last: an older C library's free changes it
        return -1;
    }
    if (!AllocateData(record, size)) {
        LogError("Can't allocate bitmap memory");
        return GiveUpBitmap(record);
    }
    LogVerbose("Allocate %zu bytes bitmap", static_cast<size_t>(size));
    if (FileExists(bitmapPath.get()) == 0) {
        LogVerbose("Bitmap files (%s) doesn't exist", bitmapPath.get());
        LogLeave();
        return 0;
    }
    if (FileGetSizeByte(bitmapPath.get(), &fileSize) != 0) {
        LogError("Get the size of file (%s) error", bitmapPath.get());
        return GiveUpBitmap(record);
    }
    LogVerbose("Bitmap memory size = %llu, file size = %llu", static_cast<unsigned long long>(size),
               static_cast<unsigned long long>(fileSize));
    if (fileSize < size) {
        LogError("Bitmap size changed. Could be due to volume expansion");
        *sizeChanged = 1;
    } else if (fileSize > size) {
        LogError("Incorrect bitmap size (%llu), file size (%llu)",
                 static_cast<unsigned long long>(size), static_cast<unsigned long long>(fileSize));
        return GiveUpBitmap(record);
    }
    if (BitmapMemInitByFile(bitmapPath.get(), record) != 0) {
        LogError("Read bitmap file to bitmap memory error");
        return GiveUpBitmap(record);
    }
    LogLeave();
    return 0;
}

int BitmapMemInitByFile(const char* path, PinBitmap* bitmap) {
    uint64_t fileSize = 0;
    uint64_t offset = 0;

    LogEnter();
    if (bitmap == nullptr || path == nullptr || bitmap->data == nullptr) {
        LogError("Incorrect parameter");
        return -1;
    }
    if (FileGetSizeByte(path, &fileSize) != 0) {
        LogError("Get the size of file (%s) error", path);
        return -1;
    }
    ScopedFd fd(OpenInForeignPlace(path, O_RDONLY, 0));
    if (!fd.valid()) {
        LogError("Can't open bitmap file (%s)\n", path);
        return -1;
    }
    LogVerbose("Start read to memory, size = %d", static_cast<int>(bitmap->size));
    // The file may have grown since it was looked at: its surplus has no bits here.
    uint64_t size = std::min<uint64_t>(fileSize, bitmap->size);
    while (offset < size) {
        size_t count = static_cast<size_t>(std::min(kFilePieceBytes, size - offset));
        LogDebug("Next read start = %d bytes=%d", static_cast<int>(offset),
                 static_cast<int>(count));
        ssize_t done = pread(fd.get(), bitmap->data + offset, count, static_cast<off_t>(offset));
        if (done <= 0) {  // 0: the file ends early
            LogError("Read bitmap file (%s) error\n", path);
            return -1;
        }
        offset += static_cast<uint64_t>(done);
    }
    LogVerbose("Read to memory finish");
    return 0;
}

int BitmapMemOperation(PinBitmap* bitmap, uint64_t startSector, uint64_t numSectors,
                       int operation) {
    LogDebug("Disk start sector=%llu num sectors=%llu\n",
             static_cast<unsigned long long>(startSector),
             static_cast<unsigned long long>(numSectors));
    uint64_t lastSector = startSector + numSectors - 1;
    uint64_t firstBit = startSector >> kPinUnitSectorShift;
    uint64_t endBit = (lastSector >> kPinUnitSectorShift) + 1;
    uint64_t numBits = static_cast<uint64_t>(bitmap->size) * 8;
    uint64_t lastBit = std::min(endBit, numBits) - 1;
    bool set = operation == kOperationSet;

    if (firstBit >= std::min(endBit, numBits)) {
        return 0;
    }
    uint8_t* first = bitmap->data + firstBit / 8;
    uint8_t* last = bitmap->data + lastBit / 8;
    unsigned fromFirst = 0xffU << firstBit % 8;
    unsigned upToLast = 0xffU >> (7 - lastBit % 8);
    if (first == last) {
        ChangeByte(*first, fromFirst & upToLast, set);
        return 0;
    }
    ChangeByte(*first, fromFirst, set);
    memset(first + 1, set ? 0xff : 0, static_cast<size_t>(last - first) - 1);
    ChangeByte(*last, upToLast, set);
    return 0;
}

int BitmapSetRange(PinBitmap* bitmap, uint64_t startSector, uint64_t numSectors) {
    return BitmapMemOperation(bitmap, startSector, numSectors, kOperationSet);
}

int BitmapUnsetRange(PinBitmap* bitmap, uint64_t startSector, uint64_t numSectors) {
    return BitmapMemOperation(bitmap, startSector, numSectors, 0);
}

int BitmapFileWrite(const PinBitmap* bitmap, const char* path) {
    uint64_t offset = 0;

    LogVerbose("Bytes to write = %d", static_cast<int>(bitmap->size));
    ScopedFd fd(OpenInForeignPlace(path, O_RDWR | O_CREAT, kFileMode));
    if (!fd.valid()) {
        LogError("Can't open bitmap file (%s) \n", path);
        return -1;
    }
    while (offset < bitmap->size) {
        size_t count = static_cast<size_t>(std::min(kFilePieceBytes, bitmap->size - offset));
        ssize_t done = pwrite(fd.get(), bitmap->data + offset, count, static_cast<off_t>(offset));
        if (done <= 0) {
            LogError("Write bitmap file (%s) error\n", path);
            return -1;
        }
        offset += static_cast<uint64_t>(done);
    }
    LogVerbose("Write to bitmap file (%s) size (%d) Finish", path, static_cast<int>(bitmap->size));
    return 0;
}

void BitmapFree(PinBitmap* bitmap) {
    if (bitmap == nullptr) {
        LogError("Bitmap is already NULL");
        return;
    }
    if (bitmap->data == nullptr) {
        LogError("Warning: data is NULL for free");
    }
    free(bitmap->data);
    free(bitmap);
}
