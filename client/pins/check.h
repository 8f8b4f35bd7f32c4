// SPDX-License-Identifier: MIT
// Whether what is pinned agrees with the bitmap: the files' extents of now against its bits, and
// its bits against what the driver has.
#pragma once

#include <stdint.h>

#include <string>
#include <vector>

#include "client/pins/sharing.h"
#include "client/service/config_state.h"
#include "client/volume/volume_view.h"

namespace client {

enum class FileCondition {
    kGood,
    kMissingBits,  // it grew, was rewritten, or a unit it shares was cleared
    kGone,         // nothing lies at its path
    kReplaced,     // another file lies at its path
    kOtherName,    // its inode lies in its directory under another name: renamed, cut by the
                   // service, or given to another file since; which, only its owner can tell
    kUnmappable,   // it, or its extents, cannot be told
};

struct FileCheck {
    PinnedNow now;
    FileCondition condition;
    uint64_t units = 0;    // that its extents lie in
    uint64_t missing = 0;  // of those, not set
};

struct VolumeCheck {
    std::string mountPath;
    bool mounted = false;    // the platform lists the volume; else nothing below is known
    std::string bitmapWith;  // the mount path at which the bitmap is checked; empty when it is here
    std::vector<std::string> mountPaths;  // of the device: this one and all others
    VolumeView view;
    std::vector<FileCheck> files;  // pinned by this mount path
    std::string uncertain;       // why it cannot be told which units are needed; empty when it can
    size_t queued = 0;           // requests of the device that are not done
    UnitSet wanted;              // what is pinned, or queued to be, by any of the mount paths
    UnitSet surplus;             // set bits that none of them needs
    uint64_t missing = 0;        // wanted by pinned files and not set
    uint64_t withoutBit = 0;     // wanted, behind the last bit
    uint64_t driverLacks = 0;    // set in the file, not in the driver's bitmap
    uint64_t driverSurplus = 0;  // set in the driver's bitmap, not in the file
    bool fileTooLong = false;    // the bitmap file is longer than the bitmap: every request fails
};

// Checks the volumes that have pinned files or set bits; only `mountPath` unless it is empty.
// The files in the result point into `volumes`.
std::vector<VolumeCheck> CheckVolumes(const ConfigState& state, const std::vector<Volume>& volumes,
                                      const std::string& mountPath);

// Whether nothing is to be said against the volume.
bool IsClean(const VolumeCheck& check);

const char* ConditionName(FileCondition condition);

Json::Value CheckToJson(const std::vector<VolumeCheck>& checks);
void PrintChecks(const std::vector<VolumeCheck>& checks);

}  // namespace client
