// SPDX-License-Identifier: MIT
// Which volume lies on the backing, kept on the SSD: by that a start tells whose cache it finds,
// also after a crash that came right after a file system was made.
#pragma once

#include <stddef.h>
#include <stdint.h>

#include <mutex>
#include <string>

#include "softcache/store/disk.h"
#include "softcache/store/ssd_store.h"

namespace softcache {

// All functions may be called by any number of threads.
class KnownVolume {
  public:
    // The backing's descriptor and the store outlive it.
    KnownVolume(const Disk& backing, SsdStore& store);

    // To be called for each change of the device. `data` is what was written there, or nullptr
    // where nobody looked. What bears the known UUID does not make it another volume at once: a
    // file system writes its superblock as often as it is asked for a sync.
    void Written(const void* data, size_t size, uint64_t offset);

    // Writes down which volume it is, before a sync is told to be done: if the last writes may have
    // made it another one.
    void BeforeSync();

    // The same if anything was written that could say so.
    void Settle();

  private:
    void Learn();

    const Disk backing_;
    SsdStore& store_;
    std::mutex mutex_;  // held until what was learnt is on the SSD
    std::string uuidBytes_;
    bool wasWritten_ = true;  // since it was learnt, where a file system says which one it is
    bool mayBeAnother_ = true;
};

}  // namespace softcache
