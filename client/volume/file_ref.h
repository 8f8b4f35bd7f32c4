// SPDX-License-Identifier: MIT
// A regular file of a volume, and files of several.
#pragma once

#include <stdint.h>

#include <string>
#include <vector>

#include "client/volume/volumes.h"
#include "platform/quordataverifier.h"

namespace client {

struct FileRef {
    const Volume* volume = nullptr;         // alive as long as the list of volumes
    std::string path;                       // absolute, its directory resolved
    std::string relative;                   // below the mount path
    uint32_t inode = 0;                     // the low half, which is what the service keeps
    uint64_t size = 0;                      // bytes
    std::vector<FileMappingEntry> extents;  // filled by whoever maps the file
};

// The files of one volume.
struct VolumeFiles {
    const Volume* volume;
    std::vector<FileRef> files;
};

// Sorts the files by volume, the volumes in the order of their first file.
std::vector<VolumeFiles> GroupByVolume(const std::vector<FileRef>& files);

// Returns the extents of all of the files.
std::vector<FileMappingEntry> ExtentsOf(const std::vector<FileRef>& files);

}  // namespace client
