// SPDX-License-Identifier: MIT
// A regular file of a volume.
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

}  // namespace client
