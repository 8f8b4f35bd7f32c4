// SPDX-License-Identifier: MIT
// A volume as it is now: its cached device, its bitmap file, and what its cache reports.
#pragma once

#include <stdint.h>

#include <string>
#include <vector>

#include "client/volume/residency.h"
#include "client/volume/units.h"
#include "client/volume/volumes.h"

namespace client {

struct VolumeView {
    std::string mountPath;
    std::string cachePath;    // the cached device; empty when the volume has no cache
    uint64_t deviceSize = 0;  // bytes; 0 when it is not known
    std::string bitmapPath;
    bool hasBitmap = false;  // the bitmap file exists and could be read
    uint64_t fileBytes = 0;  // its length
    UnitSet bits;            // its bits, with the room that the device has, where that is known
    Residency residency;
};

VolumeView LookAt(const Volume& volume);

std::string BitmapPathOf(const Volume& volume);

// Whether both paths lead to one file that is there.
bool AreOneFile(const std::string& path, const std::string& other);

// The mount paths of the volume's device, this one and each other once, in the order of `volumes`.
// However often a device is mounted, its units and mostly its bitmap file are the same.
std::vector<const Volume*> MountsOf(const Volume& volume, const std::vector<Volume>& volumes);

}  // namespace client
