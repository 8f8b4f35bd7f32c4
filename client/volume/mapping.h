// SPDX-License-Identifier: MIT
// The places of files on their volume's block device, from the library that the service uses, too.
#pragma once

#include <stdint.h>

#include <map>
#include <memory>
#include <string>
#include <vector>

#include "client/volume/units.h"
#include "platform/quordataverifier.h"

namespace client {

enum class MapOutcome {
    kMapped,
    kNothing,  // no extent has a place on the device: empty, all holes, or data within the inode
    kFailed,   // the library cannot tell, or the file is not there
};

// Maps files of any volume; the device objects are made once a volume.
class Mapper {
  public:
    // Maps the file with this inode (low half) in the directory of mount path + "/" + relative.
    MapOutcome Map(const std::string& mountPath, const std::string& relative, uint32_t inode,
                   std::vector<FileMappingEntry>& extents);

    // As Map; a file that has no extents yet is written out first, as the service does.
    MapOutcome MapFresh(const std::string& mountPath, const std::string& relative, uint32_t inode,
                        std::vector<FileMappingEntry>& extents);

  private:
    FileSystemDevice* DeviceOf(const std::string& mountPath);

    std::map<std::string, std::unique_ptr<FileSystemDevice>> devices_;
};

}  // namespace client
