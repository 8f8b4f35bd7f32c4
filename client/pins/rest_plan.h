// SPDX-License-Identifier: MIT
// The lists and bitmaps that a repair would leave behind while no service runs, worked out without
// changing anything. The lists come first: once they are written, the devices are read again, and
// the bitmaps follow from that.
#pragma once

#include <stdint.h>

#include <map>
#include <string>
#include <vector>

#include "client/pins/device_state.h"
#include "client/service/stored_list.h"

namespace client {

// The file that lies at the path of an entry whose own file was replaced.
struct Follower {
    FileRef file;     // with its extents, when it can be pinned
    std::string why;  // why it cannot be; empty when it can
};
using Followers = std::map<std::string, Follower>;  // by absolute path

struct ListPlan {
    StoredLists lists;                 // the new ones, of the mount paths whose list changes
    std::vector<std::string> actions;  // what changes, in words
    std::vector<std::string> left;     // what is not repaired, and why
};

struct BitmapPlan {
    UnitSet bits;                   // the whole new bitmap
    uint64_t set = 0;               // units that the file does not have yet
    uint64_t cleared = 0;           // units that it has, and the new bitmap has not
    bool write = false;             // the file differs
    bool hand = false;              // the driver's bitmap differs, or may differ
    std::vector<std::string> left;  // what is not repaired, and why, in words
};

// Returns why nothing of the device may be changed; empty when it may.
std::string WhyLeftAlone(const DeviceState& device);

// Plans the lists: the entry of a gone file is removed, that of a replaced file gets the inode of
// the file at its path, that of a renamed file gets its new path. Entries under a former mount path
// stay.
ListPlan PlanLists(const std::vector<DeviceState>& devices, const Followers& followers);

// Plans the bitmap: exactly the units needed. While those are uncertain, none is cleared. None is
// set when the cache would then not hold all that are, unless `overcommit`.
BitmapPlan PlanBitmap(const DeviceState& device, bool overcommit);

}  // namespace client
