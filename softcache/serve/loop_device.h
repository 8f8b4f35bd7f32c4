// SPDX-License-Identifier: MIT
// The block device that carries a cache's volume: a loop device on the file that the cache mounts,
// under a name of its own that stays the same whatever number the loop device has.
#pragma once

#include <stdint.h>

#include <string>

#include "softcache/store/file_io.h"

namespace softcache {

// Where the names are: /dev/quorcache.
std::string DefaultNameDirectory();

// The sector size of a block device, in bytes; 512 of everything else.
uint32_t SectorSizeOf(int fd);

// One loop device. It is detached by the kernel when neither this record nor anybody else, such as
// a mount, has it open any more: also when this process was killed.
class LoopDevice {
  public:
    LoopDevice() = default;
    ~LoopDevice() { Release(); }
    LoopDevice(const LoopDevice&) = delete;
    LoopDevice& operator=(const LoopDevice&) = delete;

    // Attaches a free loop device to the file at `path`, past the page cache, and puts the link
    // `directory`/`name` to it. The file must be answered by other threads than the caller's.
    // When this returns the device can be opened by its name. Returns an empty text, or what is
    // wrong; then nothing is attached.
    std::string Attach(const std::string& path, uint32_t sectorSize, const std::string& directory,
                       const std::string& name);

    // Takes the link away, so that nobody finds the device any more, and lets go of it. What was
    // written to it and not synced is written to the file first.
    void Release();

    // Whether it is still attached after Release, because others have it open.
    bool IsInUse() const;

    // The path of its node, such as /dev/loop3; empty before Attach.
    const std::string& Node() const { return node_; }

  private:
    std::string Configure(const std::string& path, uint32_t sectorSize);
    std::string PutLink(const std::string& directory, const std::string& name);

    std::string node_;
    std::string link_;         // empty while there is none
    OwnedFd device_;           // none before Attach and after Release
    uint64_t fileDevice_ = 0;  // the file, by device and inode, as the kernel tells it of the loop
    uint64_t fileInode_ = 0;   // device
};

}  // namespace softcache
