// SPDX-License-Identifier: MIT
#include "daemon/unpin_request.h"

#include <array>

#include "daemon/bitmap_update.h"
#include "daemon/file_mapping.h"
#include "daemon/request_result.h"
#include "util/driver.h"
#include "util/log.h"

namespace {

// Room for the all-zero entry behind a full batch; it is not sent.
using UnpinBatch = std::array<UnpinRange, kUnpinBatchEntries + 1>;

static_assert(sizeof(UnpinRange) * kUnpinBatchEntries == kUnpinBatchBytes,
              "8192 bytes go to the driver");

namespace send_ranges {

constexpr const char* kLogFunction = "SendUnpinInfoToDriver";

int SendBatch(const char* cachePath, UnpinBatch& batch, size_t count) {
    LogVerbose("Send unpin inctl to driver, size=%zd", static_cast<ssize_t>(kUnpinBatchBytes));
    if (g_printLevel > 1) {
        DumpRanges(batch.data(), count);
    }
    if (DoIoctl(cachePath, FLASH_CACHE_UNPIN_RANGES, batch.data(), kUnpinBatchBytes) != 0) {
        LogError("Send unpin inctl to driver failed");
        return -1;
    }
    return 0;
}

}  // namespace send_ranges

namespace handle_unpin {

constexpr const char* kLogFunction = "HandleUnpinRequest";

int ReleaseFiles(const std::vector<FileInfo>& infos, PinBitmap* bitmap, const char* mountPath,
                 const char* cachePath, std::vector<UnpinRange>& ranges) {
    for (const FileInfo& info : infos) {
        std::string path = std::string(mountPath) + "/" + info.szRelativePath;
        if (UnsetBitmapAndAppendUnpinInfos(cachePath, bitmap, mountPath, path, info.inodeNum,
                                           ranges) != 0) {
            LogError("Unset bitmap and append unpin infos failed");
            return -1;
        }
    }
    return 0;
}

int UnpinFiles(const std::vector<FileInfo>& infos, PinBitmap* bitmap, const char* mountPath,
               const char* cachePath, const char* bitmapPath) {
    std::vector<UnpinRange> ranges;

    if (ReleaseFiles(infos, bitmap, mountPath, cachePath, ranges) != 0 ||
        BitmapUpdate{kLogFunction}.WriteAndSend(bitmap, cachePath, bitmapPath) != 0) {
        return kRequestFailed;
    }
    if (SendUnpinInfoToDriver(cachePath, ranges) != 0) {
        LogError("Can't send unpin information to driver");
        return kRequestFailed;
    }
    return kRequestDone;
}

}  // namespace handle_unpin

}  // namespace

int HandleUnpinRequest(const std::vector<FileInfo>& infos, PinBitmap* bitmap, const char* mountPath,
                       const char* cachePath, const char* bitmapPath) {
    LogEnter();
    int result = handle_unpin::UnpinFiles(infos, bitmap, mountPath, cachePath, bitmapPath);
    LogLeave();
    return result;
}

int UnsetBitmapAndAppendUnpinInfos(const char* /*cachePath*/, PinBitmap* bitmap,
                                   const char* mountPath, const std::string& filePath,
                                   unsigned long inode, std::vector<UnpinRange>& ranges) {
    FileMappingTable mapping;

    LogEnter();
    if (GetMappingTableFromFile(mapping, mountPath, filePath, inode) != 0) {
        LogError("Get mapping table of file (%s) failed", filePath.c_str());
        return -1;
    }
    for (const FileMappingEntry& entry : mapping.entries) {
        LogDebug("File [%s] start sector=%llu num_sector=%llu device_start sector =%llu\n",
                 filePath.c_str(), static_cast<unsigned long long>(entry.startSector),
                 static_cast<unsigned long long>(entry.numSectors),
                 static_cast<unsigned long long>(entry.deviceStartSector));
        ranges.push_back({entry.deviceStartSector, entry.numSectors});
        BitmapUnsetRange(bitmap, entry.deviceStartSector, entry.numSectors);
    }
    LogLeave();
    return 0;
}

int SendUnpinInfoToDriver(const char* cachePath, const std::vector<UnpinRange>& ranges) {
    UnpinBatch batch = {};
    size_t count = 0;

    LogVerbose("Pass range to driver start");
    if (ranges.empty()) {
        return 0;
    }
    for (const UnpinRange& range : ranges) {
        if (count == kUnpinBatchEntries) {
            if (send_ranges::SendBatch(cachePath, batch, count) != 0) {
                return -1;
            }
            batch = {};
            count = 0;
            continue;  // the range that was due is passed over, on purpose
        }
        batch[count++] = range;
    }
    if (count > 0) {
        batch[count] = {};
        if (send_ranges::SendBatch(cachePath, batch, count) != 0) {
            return -1;
        }
    }
    LogLeave();
    return 0;
}

void DumpRanges(const UnpinRange* ranges, size_t count) {
    for (size_t i = 0; i < count; ++i) {
        LogVerbose("Unpin range [%zd] start sector = %llu num sectors = %llu",
                   static_cast<ssize_t>(i), static_cast<unsigned long long>(ranges[i].startSector),
                   static_cast<unsigned long long>(ranges[i].numSectors));
    }
}
