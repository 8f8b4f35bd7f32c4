// SPDX-License-Identifier: MIT
// Everything known of one cached device, read once: what is listed and queued, what lies on the
// disk, and what bitmap file, driver and cache have. Every verb puts its question to it.
#pragma once

#include <stdint.h>

#include <string>
#include <vector>

#include "client/pins/pinned_file.h"
#include "client/volume/volume_view.h"

namespace client {

struct DeviceState {
    std::vector<const Volume*> mounts;  // all mount paths of the device; views are of the first
    VolumeView view;                    // bitmap file, driver's bitmap, cache
    std::vector<PinnedFile> listed;     // by any of its mount paths, and by former ones
    std::vector<PinnedFile> queued;     // to be pinned
    size_t requests = 0;                // queued for any of its mount paths

    // The bitmap as it should be: the units of all files that are listed or queued to be pinned.
    UnitSet needed;
    UnitSet missing;          // needed by what its mount paths of now list, and not set
    UnitSet surplus;          // set, and needed by none
    UnitSet driverLacks;      // set in the file, not with the driver; empty when the driver is mute
    UnitSet driverSurplus;    // with the driver, not set in the file; the same
    uint64_t withoutBit = 0;  // units of listed files in the device's tail, which has no bits
    bool fileTooLong = false;  // the bitmap file is longer than the bitmap: every request fails
    std::string uncertain;     // why nothing may be cleared, in words; empty when it may
};

// Reads every device that has pinned or queued files or set bits; only the one mounted at
// `mountPath`, whatever it has, unless that is empty. The result points into `volumes`.
std::vector<DeviceState> ReadDevices(const ConfigState& state, const std::vector<Volume>& volumes,
                                     const std::string& mountPath = "");

// Reads one device of `volumes`.
DeviceState ReadDevice(const ConfigState& state, const Volume& volume,
                       const std::vector<Volume>& volumes);

// Whether the device is mounted there.
bool IsMountOf(const DeviceState& device, const std::string& mountPath);

// Returns the mount paths with pinned files at which no volume is mounted now.
std::vector<std::string> UnmountedPaths(const ConfigState& state,
                                        const std::vector<Volume>& volumes);

// Whether list, disk, bitmap file and driver agree.
bool Agrees(const DeviceState& device);

// Returns the entry of the file with this inode that is listed by the mount path, null when none.
const PinnedFile* FindListed(const DeviceState& device, const std::string& mountPath,
                             uint32_t inode);

}  // namespace client
