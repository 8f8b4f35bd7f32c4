// SPDX-License-Identifier: MIT
// Everything known about one cached device, read once: which files are listed and queued, what lies
// on the disk, and what the bitmap file, the driver and the cache have. Every verb asks this.
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
    std::vector<PinnedFile> listed;     // under any of its mount paths, former ones included
    std::vector<PinnedFile> queued;     // to be pinned
    size_t requests = 0;                // queued for any of its mount paths

    // The bitmap as it should be: the units of all files that are listed or queued to be pinned.
    UnitSet needed;
    UnitSet missing;           // needed by what its mount paths of now list, and not set
    UnitSet surplus;           // set, and needed by none
    UnitSet driverLacks;       // set in the file, not with the driver; empty when that is not known
    UnitSet driverSurplus;     // with the driver, not set in the file; empty when that is not known
    UnitSet absent;            // set, written and not in the cache; empty when that is not known
    uint64_t withoutBit = 0;   // units of listed files in the device's tail, which has no bits
    bool fileTooLong = false;  // the bitmap file is longer than the bitmap: every request fails
    std::string uncertain;     // why no unit may be cleared, in words; empty when they may be
};

// Reads the device mounted at `mountPath`; when that is empty, every device that has listed or
// queued files, or bits set. The result points into `volumes`.
std::vector<DeviceState> ReadDevices(const ConfigState& state, const std::vector<Volume>& volumes,
                                     const std::string& mountPath = "");

// Reads the devices on which the files lie, each once.
std::vector<DeviceState> ReadDevicesOf(const ConfigState& state, const std::vector<Volume>& volumes,
                                       const std::vector<FileRef>& files);

// Reads one device of `volumes`.
DeviceState ReadDevice(const ConfigState& state, const Volume& volume,
                       const std::vector<Volume>& volumes);

// Whether the device is mounted there.
bool IsMountOf(const DeviceState& device, const std::string& mountPath);

// Returns the mount paths that have listed files and no volume mounted at them.
std::vector<std::string> UnmountedPaths(const ConfigState& state,
                                        const std::vector<Volume>& volumes);

// Returns the units that are set and not in the cache, without those that the listed files have and
// never wrote: nothing reads these. Looks at the files only when units are not in the cache, and
// only at their paths.
UnitSet FindAbsent(const ConfigState& state, const Volume& volume, const VolumeView& view);

// Returns whether list, disk, bitmap file and driver agree.
bool Agrees(const DeviceState& device);

// Returns the file with this inode that is listed under the mount path, null when there is none.
const PinnedFile* FindListed(const DeviceState& device, const std::string& mountPath,
                             uint32_t inode);

// Units that several files share have one bit, which the service clears when any of the files is
// unpinned. The others are then pinned again, by requests sent right behind the unpin. Returns the
// files that share a unit with one of `leaving`, whose extents must be filled, and that stay
// pinned, or are queued to be, under any mount path of the devices. None is returned twice.
std::vector<FileRef> FilesToRepin(const std::vector<DeviceState>& devices,
                                  const std::vector<FileRef>& leaving);

}  // namespace client
