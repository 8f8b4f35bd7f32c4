// SPDX-License-Identifier: MIT
#include "daemon/bitmap_update.h"

#include "util/driver.h"
#include "util/log.h"

int BitmapUpdate::WriteAndSend(PinBitmap* bitmap, const char* cachePath,
                               const char* bitmapPath) const {
    // The file first: the next request starts from it and would undo what only the driver has.
    if (BitmapFileWrite(bitmap, bitmapPath) != 0) {
        LogError("Write bitmap failed");
        return -1;
    }
    if (BitmapDriverUpdate(bitmap, cachePath) != 0) {
        LogError("Can't send bitmap to driver");
        return -1;
    }
    return 0;
}
