// SPDX-License-Identifier: MIT
// The pin bitmap of a cached volume, in memory and in its file.
//
// Bit b, least significant bit first, stands for one unit of 64 KiB: the 128 sectors of 512 bytes
// that start at sector 128 * b of the cached device. A tail of less than 512 KiB has no bits. The
// file holds the raw bytes and nothing else. Only the worker thread uses bitmaps.
#pragma once

#include <stddef.h>
#include <stdint.h>
#include <string.h>

// The record and its data are both allocated from the C heap. With 4-byte pointers, the record's
// bytes are the descriptor that the flash-cache driver takes.
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

constexpr unsigned kBitsOfWord = 64;

// Whether the bit is the first of an aligned word of 64 bits, all of them there and none of them
// set.
inline bool BitmapStartsEmptyWord(const PinBitmap& bitmap, uint64_t bit) {
    uint64_t word = 0;

    if (bit % kBitsOfWord != 0 || bitmap.size - bit / 8 < sizeof(word)) {
        return false;
    }
    memcpy(&word, bitmap.data + bit / 8, sizeof(word));
    return word == 0;
}

// Stores the size of the block device in bytes. Returns 0, or -1.
int DeviceGetSizeByte(const char* device, uint64_t* size);

// Stores how many bytes the bitmap of the device has. Returns 0, or -1.
int BitmapGetNeededSizeByte(const char* device, uint64_t* size);

// Allocates the bitmap of the space's cache and loads its file; a missing file counts as all zero.
// A file smaller than the bitmap fills its front and sets `*sizeChanged`; a larger one is a
// failure.
//
// Returns 0 with the record in `*bitmap`; release it with BitmapFree. Returns -1 with errno ENODEV
// when the device's size could not be read: `*bitmap` may then be an empty record, to be released
// as well. Returns -1 with any other errno otherwise: do not use or release `*bitmap` then.
int BitmapMemAllocateAndInit(const char* spaceUuid, PinBitmap** bitmap, uint8_t* sizeChanged);

// Loads the file into the front of the bitmap, as far as it fits. Returns 0, or -1.
int BitmapMemInitByFile(const char* path, PinBitmap* bitmap);

// Sets (`operation` 1) or clears (any other value) the bits of a range of sectors, skipping those
// that the bitmap does not have. Returns 0.
int BitmapMemOperation(PinBitmap* bitmap, uint64_t startSector, uint64_t numSectors, int operation);
int BitmapSetRange(PinBitmap* bitmap, uint64_t startSector, uint64_t numSectors);
int BitmapUnsetRange(PinBitmap* bitmap, uint64_t startSector, uint64_t numSectors);

// Writes the bitmap's bytes over the front of the file, creating a missing one; it is never
// truncated. Returns 0, or -1 with the bytes written so far left in place.
int BitmapFileWrite(const PinBitmap* bitmap, const char* path);

// Releases the record and its data. A null record is logged as an error and otherwise ignored.
void BitmapFree(PinBitmap* bitmap);
