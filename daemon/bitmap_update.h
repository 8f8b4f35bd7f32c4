// SPDX-License-Identifier: MIT
// Bringing a changed bitmap into force, as pin and unpin do it.
#pragma once

#include "util/pin_bitmap.h"

// Log lines name the function whose step this is.
struct BitmapUpdate {
    const char* kLogFunction;

    // Writes the bitmap's file, then hands the bitmap to the driver. Returns 0; or -1 when one of
    // them fails, and then what was written stays and nothing more is done.
    int WriteAndSend(PinBitmap* bitmap, const char* cachePath, const char* bitmapPath) const;
};
