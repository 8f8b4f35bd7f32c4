// SPDX-License-Identifier: MIT
#include "daemon/pin_request.h"

#include "daemon/bitmap_update.h"
#include "daemon/cache_warming.h"
#include "daemon/file_mapping.h"
#include "daemon/request_result.h"
#include "util/log.h"

namespace {

namespace handle_pin {

constexpr const char* kLogFunction = "HandlePinRequest";

// Maps the files, sets their bits and lists them for the reading. Returns 0, or -1.
int AddFiles(const std::vector<FileInfo>& infos, PinBitmap* bitmap, const char* mountPath,
             std::vector<MappedFile>& files) {
    for (const FileInfo& info : infos) {
        if (info.szRelativePath[0] == '\0') {
            LogError("Info's relative path should not be empty string");
            return -1;
        }
        std::string path = std::string(mountPath) + "/" + info.szRelativePath;
        MappedFile file;
        if (BitmapMemAdd(bitmap, mountPath, path, info.inodeNum, file.table) != 0) {
            LogError("Can't add file (%s) inode (%lu) to bitmap", path.c_str(), info.inodeNum);
            return -1;
        }
        file.path = info.szRelativePath;
        files.push_back(file);
    }
    return 0;
}

int PinFiles(const std::vector<FileInfo>& infos, PinBitmap* bitmap, const char* mountPath,
             const char* cachePath, const char* bitmapPath) {
    std::vector<MappedFile> files;

    if (AddFiles(infos, bitmap, mountPath, files) != 0 ||
        BitmapUpdate{kLogFunction}.WriteAndSend(bitmap, cachePath, bitmapPath) != 0) {
        return kRequestFailed;
    }
    // The reading last: the cache may evict at once what it does not yet know to be pinned.
    return ReadFilesToCache(mountPath, files);
}

}  // namespace handle_pin

}  // namespace

int HandlePinRequest(const std::vector<FileInfo>& infos, PinBitmap* bitmap, const char* mountPath,
                     const char* cachePath, const char* bitmapPath) {
    LogEnter();
    int result = handle_pin::PinFiles(infos, bitmap, mountPath, cachePath, bitmapPath);
    LogLeave();
    return result;
}

int BitmapMemAdd(PinBitmap* bitmap, const char* mountPath, const std::string& filePath,
                 unsigned long inode, FileMappingTable& table) {
    FileMappingTable mapping;

    LogVerbose("Add file (%s) start", filePath.c_str());
    if (GetMappingTableFromFile(mapping, mountPath, filePath, inode) != 0) {
        LogVerbose("Can't get mapping table of file (%s)", filePath.c_str());
        return -1;
    }
    for (const FileMappingEntry& entry : mapping.entries) {
        LogDebug("File [%s] start sector=%llu num_sector=%llu device_start sector =%llu\n",
                 filePath.c_str(), static_cast<unsigned long long>(entry.startSector),
                 static_cast<unsigned long long>(entry.numSectors),
                 static_cast<unsigned long long>(entry.deviceStartSector));
        BitmapSetRange(bitmap, entry.deviceStartSector, entry.numSectors);
    }
    table = mapping;
    LogVerbose("Add file (%s) finish", filePath.c_str());
    return 0;
}
