// SPDX-License-Identifier: MIT
// libquordataverifier: which sectors of a volume's block device hold a file.
// All sectors are 512 bytes.
#pragma once

#include <stdint.h>

#include <string>
#include <vector>

// One extent of a file.
struct FileMappingEntry {
    uint64_t startSector;        // first sector within the file
    uint64_t numSectors;         // length in sectors
    uint64_t deviceStartSector;  // first sector on the volume's block device
    uint32_t uninitialized;      // 1 = allocated, never written
};

// A file's extents in file order; copied by value. An empty table means that nothing of the file
// has a place on the device yet. The members behind `entries` are the library's own.
struct FileMappingTable {
    std::vector<FileMappingEntry> entries;
    std::string path;
    std::vector<uint64_t> reserved0;
    uint64_t fileSize = 0;  // bytes
    uint32_t blockSize = 0;
    uint32_t reserved1 = 0;
};

// The file system on one block device. The order of the virtual functions is the library's.
class FileSystemDevice {
  public:
    virtual ~FileSystemDevice() = default;
    virtual int GetType() const = 0;  // not used by the service

    // Fills `table` with the extents of the file that has `inode` (its low 32 bits count) in
    // `directory`. `flags` is 0. Returns a negative number on failure.
    virtual int GetMappingTable(const std::string& directory, unsigned long inode, int flags,
                                FileMappingTable& table) = 0;

    // Stores the block device that holds `path`. Returns -1 when the lookup failed, 1 when there is
    // no such device, another value on success. `flag` is false.
    static int GetDevicePath(const std::string& path, std::string& devicePath, bool flag);
};

class FileSystemDeviceCreater {
  public:
    // Returns a new device object, which the caller deletes, or null.
    static FileSystemDevice* Create(const std::string& devicePath);
};
