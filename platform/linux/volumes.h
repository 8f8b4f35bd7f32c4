// SPDX-License-Identifier: MIT
// The mounted volumes: which file systems of block devices are spaces, and what their UUIDs are.
#pragma once

#include <sys/types.h>

#include <memory>
#include <string>
#include <vector>

#include "platform/linux/mount_table.h"

namespace stand_in {

struct Volume {
    std::string mountPoint;  // fits into a space's record
    std::string uuid;        // as libblkid writes it
    dev_t fileSystem;        // the file system's device number
    BlockDevice device;      // what it is mounted from
};

struct VolumeListing {
    std::vector<Volume> volumes;  // in the order in which they were mounted
    bool complete;                // false: a volume that could not be examined was left out
};

// Lists the volumes. A volume is a mount of the whole of a block device's file system that has a
// UUID and can be reached at its mount point; a file system mounted in several places is listed for
// each of them.
//
// Left out are a device that cannot be read, a mount point too long for its field, and a second
// file system with a UUID that is listed already, because a UUID must mean one volume. The system
// log names each of them once for as long as its cause lasts. A mount that was listed last time and
// cannot be examined now keeps its UUID: that of a mounted file system does not change.
//
// The list of the last call is returned, the same object, as long as ReadMounts returns the same
// mounts, for a second at most: nobody tells of a new UUID, or of a node that comes or goes. One
// with something in it that could not be examined is made anew at the next call.
//
// Returns null, having said why, when the mounts cannot be listed.
std::shared_ptr<const VolumeListing> ListVolumes();

}  // namespace stand_in
