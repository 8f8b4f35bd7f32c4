// SPDX-License-Identifier: MIT
// Carrying out a request to unpin files.
#pragma once

#include <stddef.h>

#include <string>
#include <vector>

#include "daemon/request_data.h"
#include "platform/quorflashcache.h"
#include "util/pin_bitmap.h"

// Unpins the files: all are mapped and taken out of the bitmap, then the bitmap's file is written,
// then the driver gets the bitmap, then the released ranges. A unit shared with a file that stays
// pinned is released all the same. Returns a RequestResult, never interrupted; failed with nothing
// written when a file cannot be mapped.
int HandleUnpinRequest(const std::vector<FileInfo>& infos, PinBitmap* bitmap, const char* mountPath,
                       const char* cachePath, const char* bitmapPath);

// Clears the bits of the file's extents and appends the extents, as they are, to `ranges`. Returns
// 0; or -1 when the file cannot be mapped. `cachePath` is not used.
int UnsetBitmapAndAppendUnpinInfos(const char* cachePath, PinBitmap* bitmap, const char* mountPath,
                                   const std::string& filePath, unsigned long inode,
                                   std::vector<UnpinRange>& ranges);

// Sends the ranges to the driver in batches of 512. The range that is due when a batch is full is
// passed over: neither that batch nor the next holds it. Returns 0, or -1 at the first batch that
// the driver refuses; batches before it stay in force. An empty list sends nothing.
int SendUnpinInfoToDriver(const char* cachePath, const std::vector<UnpinRange>& ranges);

// Logs the ranges; called when the print level is raised.
void DumpRanges(const UnpinRange* ranges, size_t count);
