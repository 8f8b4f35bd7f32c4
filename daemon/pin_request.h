// SPDX-License-Identifier: MIT
// Carrying out a request to pin files.
#pragma once

#include <string>
#include <vector>

#include "daemon/request_data.h"
#include "platform/quordataverifier.h"
#include "util/pin_bitmap.h"

// Pins the files: all are mapped and added to the bitmap, then the bitmap's file is written, then
// the driver gets the bitmap, then the files are read into the cache. Returns a RequestResult:
// failed with nothing written when a file cannot be mapped; interrupted, with file and driver up to
// date, when the volume became pending during the reading.
int HandlePinRequest(const std::vector<FileInfo>& infos, PinBitmap* bitmap, const char* mountPath,
                     const char* cachePath, const char* bitmapPath);

// Sets the bits of the file's extents and stores its mapping in `table`. Returns 0; or -1 when the
// file cannot be mapped, with bitmap and table untouched.
int BitmapMemAdd(PinBitmap* bitmap, const char* mountPath, const std::string& filePath,
                 unsigned long inode, FileMappingTable& table);
