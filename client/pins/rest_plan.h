// SPDX-License-Identifier: MIT
// What a repair makes of the lists and of the bitmaps while no service runs, worked out without
// changing anything. The lists come first: what a bitmap needs is read anew by the lists as they
// become.
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
    FileRef file;     // filled, its extents too, when it can be pinned
    std::string why;  // it cannot; empty when it can
};
using Followers = std::map<std::string, Follower>;  // by absolute path

struct ListPlan {
    StoredLists lists;                 // as they become; only those that change
    std::vector<std::string> actions;  // what changes, in words
    std::vector<std::string> left;     // what stays as it is, and why
};

struct BitmapPlan {
    UnitSet bits;      // the whole bitmap as it becomes
    uint64_t set = 0;  // units, newly
    uint64_t cleared = 0;
    bool write = false;  // the file has something else
    bool hand = false;   // the driver has something else, or may have
    std::string left;    // what stays as it is, and why; empty when all is set right
};

// Returns why nothing may be changed about the device, empty when it may.
std::string WhyLeftAlone(const DeviceState& device);

// Entries of files that are gone go, those of replaced files follow to the file at the path,
// renamed ones get their new path. Entries that are listed by a former mount path stay.
ListPlan PlanLists(const std::vector<DeviceState>& devices, const Followers& followers);

// The bitmap becomes exactly what the lists need. While that is uncertain nothing is cleared.
BitmapPlan PlanBitmap(const DeviceState& device);

}  // namespace client
