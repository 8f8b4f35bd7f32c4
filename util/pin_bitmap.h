// SPDX-License-Identifier: MIT
// The pin bitmap of a cached volume, in memory and in its file.
//
// Bit b, least significant bit first, stands for one 64 KiB unit: the 128 sectors of 512 bytes from
// sector 128 * b of the cached device. A device tail shorter than 512 KiB has no bits. The file
// holds the raw bytes and nothing else. Only the worker thread uses bitmaps.
#pragma once

#include <stddef.h>
#include <stdint.h>

// Both the record and its data are of the C heap. Where pointers have 4 bytes this is, as it lies
// in memory, the descriptor that the flash-cache driver takes.
struct PinBitmap {
    uint8_t* data;
    uint32_t size;  // bytes
};

#if UINTPTR_MAX == UINT32_MAX
static_assert(sizeof(PinBitmap) == 8, "the driver's bitmap descriptor is 8 bytes");
static_assert(offsetof(PinBitmap, size) == 4, "PinBitmap::size");
#endif

constexpr unsigned kPinUnitSectorShift = 7;  // sectors to units
constexpr unsigned kPinUnitByteShift = 16;   // bytes to units

inline bool BitmapHasBit(const PinBitmap& bitmap, uint64_t bit) {
    return (bitmap.data[bit / 8] >> (bit % 8) & 1) != 0;
}

// Stores the size of the block device in bytes. Returns 0, or -1.
int DeviceGetSizeByte(const char* device, uint64_t* size);

// Stores how many bytes the bitmap of the device has. Returns 0, or -1.
int BitmapGetNeededSizeByte(const char* device, uint64_t* size);

// Makes the bitmap of the space's cache and loads its file, a missing one as all zero. A file
// smaller than the bitmap is loaded into its front and sets `*sizeChanged`; a larger one is a
// failure. Returns 0 with the record in `*bitmap`, for BitmapFree. Returns -1 otherwise: with errno
// ENODEV when the device's size could not be told, and then an empty record may be in `*bitmap`,
// for BitmapFree; with any other errno `*bitmap` must be neither used nor released.
int BitmapMemAllocateAndInit(const char* spaceUuid, PinBitmap** bitmap, uint8_t* sizeChanged);

// Loads the file into the front of the bitmap; what does not fit is left out. Returns 0, or -1.
int BitmapMemInitByFile(const char* path, PinBitmap* bitmap);

// Sets (`operation` 1) or clears (any other) the bits of a range of sectors. Bits that the bitmap
// does not have are passed over. Returns 0.
int BitmapMemOperation(PinBitmap* bitmap, uint64_t startSector, uint64_t numSectors, int operation);
int BitmapSetRange(PinBitmap* bitmap, uint64_t startSector, uint64_t numSectors);
int BitmapUnsetRange(PinBitmap* bitmap, uint64_t startSector, uint64_t numSectors);

// Writes the bitmap's bytes over the front of the file, which is created when missing and never
// truncated. Returns 0, or -1; bytes written before a failure stay.
int BitmapFileWrite(const PinBitmap* bitmap, const char* path);

// Releases the record and its data. A null record is reported and otherwise ignored.
void BitmapFree(PinBitmap* bitmap);
