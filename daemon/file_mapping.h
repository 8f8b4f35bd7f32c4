// SPDX-License-Identifier: MIT
// From a file to its extents on the volume's block device, in sectors of 512 bytes.
#pragma once

#include <string>

#include "platform/quordataverifier.h"

// A file whose extents are to be read into the cache.
struct MappedFile {
    std::string path;        // relative to the volume's mount path
    FileMappingTable table;  // a copy of its mapping
};

// Returns a device object for the block device that holds the path, for the caller to delete, or
// null with an error.
FileSystemDevice* CreateFileSystemDeviceByFilePath(const std::string& path);

// Returns 1 when the debug settings file holds exactly this path (one newline at its end allowed),
// else 0: a way to see what a failed mapping does.
int FileSimulateGetMappingFailed(const std::string& filePath);

// Syncs the file. Returns 0, or -1 when it cannot be opened or synced.
int DoFsync(const char* path);

// Fills the table with the file's extents. A fresh file that has none yet is synced once and asked
// for again every second, 60 times at most. Returns 0; or -1 with an error, and then the table is
// worth nothing.
int GetMappingTableFromFile(FileMappingTable& table, const char* mountPath,
                            const std::string& filePath, unsigned long inode);
