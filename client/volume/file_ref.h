// SPDX-License-Identifier: MIT
// Regular files of volumes, and their places on the block device.
#pragma once

#include <stdint.h>

#include <map>
#include <memory>
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

// Where hard links with plain names lie, at the top of a volume; see plain_links.h.
constexpr char kLinkDirectory[] = ".quorcachepin";

// Returns the relative path of the link to a file.
std::string LinkName(uint32_t inode);

// Whether the relative path is that of a link, there or not.
bool IsLinkName(const std::string& relative);

// The files of one volume.
struct VolumeFiles {
    const Volume* volume;
    std::vector<FileRef> files;
};

// Sorts the files by volume, the volumes in the order of their first file.
std::vector<VolumeFiles> GroupByVolume(const std::vector<FileRef>& files);

// Returns the extents of all of the files.
std::vector<FileMappingEntry> ExtentsOf(const std::vector<FileRef>& files);

enum class MapOutcome {
    kMapped,
    kNothing,  // no extent has a place on the device: empty, all holes, or data within the inode
    kFailed,   // the library cannot read them, or the file is not there
};

// Maps files of any volume by the library that the service uses, too; the device objects are made
// once a volume.
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
