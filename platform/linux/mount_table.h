// SPDX-License-Identifier: MIT
// The mounted file systems as the kernel lists them, and the block devices they lie on.
#pragma once

#include <stdint.h>
#include <sys/types.h>

#include <memory>
#include <string>
#include <vector>

namespace stand_in {

struct Mount {
    uint64_t id;             // the kernel's number of the mount
    std::string mountPoint;  // plain text, with its blanks and newlines
    std::string root;        // the part of the file system that is mounted; "/" is all of it
    std::string fsType;      // "ext4"
    std::string source;      // as it was given to mount; not necessarily a path
    dev_t fileSystem;        // the file system's device number; no block device has major 0
};

struct BlockDevice {
    std::string path;  // of a device node
    dev_t number;
};

using MountList = std::shared_ptr<const std::vector<Mount>>;

// Returns all mounts in the kernel's order, the outer before the inner; or null, having said why,
// when the list cannot be read.
//
// The list of the last call is returned, the same object, as long as the kernel tells of no change.
// It tells of every mount and unmount at once. A mount point that gets another name because a
// directory above it is renamed is looked for, every 10 ms.
MountList ReadMounts();

// Stores the number of the mount that holds `path`. The kernel itself finds it, so links and
// covered mounts need no thought here. Returns false with errno set.
bool FindMountId(const std::string& path, uint64_t& id);

// Returns the number of the block device that the mount's file system lies on, 0 when it lies on
// none. Where a file system has several devices, it is one of them.
dev_t BlockDeviceNumber(const Mount& mount);

// Stores the block device of a mount that has one. Returns false when no node of it is found.
bool FindBlockDevice(const Mount& mount, BlockDevice& device);

}  // namespace stand_in
