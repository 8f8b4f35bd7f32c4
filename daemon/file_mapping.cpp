// SPDX-License-Identifier: MIT
#include "daemon/file_mapping.h"

#include <fcntl.h>
#include <libgen.h>
#include <limits.h>
#include <stdint.h>
#include <stdio.h>
#include <unistd.h>

#include <memory>

#include "util/file.h"
#include "util/log.h"
#include "util/scoped.h"
#include "util/stored_format.h"

namespace {

constexpr int kMaxAttempts = 60;  // a second each
constexpr int kAttemptsPerNotice = 10;
// A path, the newline behind it, and one byte more, which makes the content no path.
constexpr size_t kMaxSimulationBytes = PATH_MAX + 1;
constexpr int kDevicePathFailed = -1;
constexpr int kDevicePathNotFound = 1;

std::string DirectoryOf(const std::string& filePath) {
    char copy[kPathBufferSize] = {};

    snprintf(copy, sizeof(copy), "%s", filePath.c_str());
    return dirname(copy);
}

namespace get_mapping {

constexpr const char* kLogFunction = "GetMappingTableFromFile";

void NoteUninitialized(const FileMappingTable& table, const std::string& filePath) {
    if (table.entries.size() == 1 && table.entries[0].uninitialized == 1) {
        LogNotice("Only get 1 unitilized entry from file (%s)", filePath.c_str());
    }
}

// Asks once. Returns the library's result, or -1 with its error when it failed or was made to fail.
int AskOnce(FileSystemDevice& device, const std::string& directory, const std::string& filePath,
            unsigned long inode, FileMappingTable& table) {
    int result = device.GetMappingTable(directory, inode, 0, table);

    if (FileSimulateGetMappingFailed(filePath) == 1) {
        LogError("Simulate %s get mapping failed", filePath.c_str());
        result = -1;
    }
    if (result < 0) {
        LogError("Get mapping result fail.");
        return -1;
    }
    return result;
}

int TimeOut(const FileMappingTable& table, const std::string& filePath) {
    NoteUninitialized(table, filePath);
    LogError("Get mapping of file (%s) timeout (%d seconds)", filePath.c_str(), kMaxAttempts);
    return -1;
}

// Asks until there are extents. Returns 0, or -1.
int WaitForExtents(FileSystemDevice& device, const std::string& filePath, unsigned long inode,
                   FileMappingTable& table) {
    std::string directory = DirectoryOf(filePath);
    int emptyAnswers = 0;

    for (int attempt = 0; attempt < kMaxAttempts; ++attempt) {
        int result = AskOnce(device, directory, filePath, inode, table);
        if (result < 0) {
            return -1;
        }
        if (!table.entries.empty()) {
            NoteUninitialized(table, filePath);
            LogVerbose("Entry number = %zu", table.entries.size());
            return 0;
        }
        // A fresh file gets its place on the device when it is written out, which may take a while.
        if (attempt == 0) {
            LogNotice("Do fsync");
            if (DoFsync(filePath.c_str()) != 0) {
                LogError("Do fsync failed");
                break;
            }
        }
        if (++emptyAnswers == kAttemptsPerNotice) {
            LogNotice("Retry to get mapping of file (%s) Ret = %d size = %zd", filePath.c_str(),
                      result, static_cast<ssize_t>(table.entries.size()));
            emptyAnswers = 0;
        }
        sleep(1);
    }
    return TimeOut(table, filePath);
}

}  // namespace get_mapping

}  // namespace

FileSystemDevice* CreateFileSystemDeviceByFilePath(const std::string& path) {
    std::string devicePath;
    int result = FileSystemDevice::GetDevicePath(path, devicePath, false);

    if (result == kDevicePathFailed) {
        LogError("Get device path of file fail. File path = \"%s\"", path.c_str());
        return nullptr;
    }
    if (result == kDevicePathNotFound) {
        LogError("Device path of file not found. File path = \"%s\"", path.c_str());
        return nullptr;
    }
    FileSystemDevice* device = FileSystemDeviceCreater::Create(devicePath);
    if (device == nullptr) {
        LogError("Create file system device \"%s\" fail.", devicePath.c_str());
    }
    return device;
}

int FileSimulateGetMappingFailed(const std::string& filePath) {
    std::string content;

    // Anybody can make the file, of any size and kind.
    if (FileExists(kDebugSettingsPath) == 0 ||
        FileReadContent(kDebugSettingsPath, kMaxSimulationBytes, content) != 0) {
        return 0;
    }
    if (!content.empty() && content.back() == '\n') {
        content.pop_back();
    }
    int result = content == filePath ? 1 : 0;
    LogDebug("Simulate error file=%s failed failed=%s ret=%d", filePath.c_str(), content.c_str(),
             result);
    return result;
}

int DoFsync(const char* path) {
    ScopedFd fd(open(path, O_RDONLY | O_NONBLOCK));  // a FIFO must not block the worker

    if (!fd.valid()) {
        LogError("Can't open file %s", path);
        return -1;
    }
    if (fsync(fd.get()) != 0) {
        LogError("Do fsync failed");
        return -1;
    }
    return 0;
}

int GetMappingTableFromFile(FileMappingTable& table, const char* mountPath,
                            const std::string& filePath, unsigned long inode) {
    LogVerbose("Start for file (%s), inode = %lu", filePath.c_str(), inode);
    std::unique_ptr<FileSystemDevice> device(CreateFileSystemDeviceByFilePath(mountPath));
    if (device == nullptr) {
        LogError("Create file system device fail. Path:%s", filePath.c_str());
        return -1;
    }
    int result = get_mapping::WaitForExtents(*device, filePath, inode, table);
    LogLeave();
    return result;
}
