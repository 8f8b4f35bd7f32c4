// SPDX-License-Identifier: MIT
// One cache with everything that is served of it: the record that the files of the mount work on.
#pragma once

#include <stdint.h>

#include <mutex>
#include <string>
#include <vector>

#include "softcache/core/block_cache.h"
#include "softcache/serve/control_record.h"
#include "softcache/serve/faults.h"
#include "softcache/serve/known_volume.h"
#include "softcache/serve/registry.h"

namespace softcache {

struct ServedCache {
    // The store, and the backing's descriptor, outlive it.
    ServedCache(const Disk& backing, SsdStore& ssd, const std::vector<WarmSlot>& warm,
                std::string registryDirectory, RegistryRecord registryRecord);

    // Puts the pin bitmap of the last run in force again. Returns an empty text, or why it is not.
    std::string RestorePins();

    // Puts a bitmap in force: on the SSD first, then in the cache. Returns 0, or -errno with the
    // old one in force.
    int ApplyPins(const std::vector<uint8_t>& bitmap);

    // The device's changes, as BlockCache has them, with what they say of the volume on it.
    int Write(const void* data, size_t size, uint64_t offset);
    int Allocate(int mode, uint64_t offset, uint64_t length);
    int Flush(bool dataOnly);

    SsdStore& store;
    BlockCache cache;
    KnownVolume volume;
    Faults faults;
    ControlRecord record;
    RegistryEntry registry;
    bool testDoors = false;   // whether orders to fail are taken; set before anything is served
    std::mutex controlMutex;  // held while a control request is answered, never while its caller's
                              // memory is read
};

// The text of stats.json.
std::string StatsText(const ServedCache& served);

}  // namespace softcache
