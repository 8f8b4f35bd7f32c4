// SPDX-License-Identifier: MIT
// Control requests to the flash-cache driver, on the cached block device. The device is opened for
// each request and closed again.
#pragma once

#include <stddef.h>

#include "util/pin_bitmap.h"

// Sends one control request; `argument` may be null, `argumentSize` (bytes) is only logged. Returns
// 0, or -1 when the device cannot be opened or refuses.
int DoIoctl(const char* device, unsigned long request, void* argument, size_t argumentSize);

// Hands the whole bitmap to the driver, which reads it from this process's memory. Returns 0, or
// -1.
int BitmapDriverUpdate(PinBitmap* bitmap, const char* device);
