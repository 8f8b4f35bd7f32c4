// SPDX-License-Identifier: MIT
// The places of files on their volume's block device, from the library that the service uses, too.
#pragma once

#include <map>
#include <memory>
#include <string>

#include "client/volume/file_ref.h"
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
    // Fills the file's extents, which are found by its directory and its inode. A file that has
    // none yet is written out first, as the service does. A failure leaves them as they are.
    MapOutcome Map(FileRef& file);

  private:
    MapOutcome MapNow(FileRef& file);
    FileSystemDevice* DeviceOf(const std::string& mountPath);

    std::map<std::string, std::unique_ptr<FileSystemDevice>> devices_;
};

}  // namespace client
