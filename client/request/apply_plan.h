// SPDX-License-Identifier: MIT
// What has to be asked for, so that what a configuration wants is pinned.
#pragma once

#include <stddef.h>

#include <string>
#include <vector>

#include "client/pins/device_state.h"
#include "client/request/wanted_files.h"

namespace client {

struct ApplyPlan {
    std::vector<FileRef> pins;           // wanted, and not pinned whole
    std::vector<FileRef> unpins;         // listed and not wanted
    std::vector<PinnedFile> replaced;    // entries of wanted paths whose own files were replaced
    std::vector<PinnedFile> left;        // listed, not wanted, and no request can unpin them
    std::vector<std::string> unfitting;  // why pins were taken out, in words, one for each volume
    size_t held = 0;                     // wanted and pinned
    size_t queued = 0;                   // wanted and asked for already
    size_t byHand = 0;                   // listed, not wanted, and left alone
};

// Compares what is wanted with what is pinned. A file counts as pinned when its own inode is listed
// and none of its units is missing, so that one that grew or was replaced is pinned again. Without
// `prune` nothing is unpinned. The result points where its arguments do.
ApplyPlan PlanApply(const PinConf& conf, const WantedFiles& wanted,
                    const std::vector<DeviceState>& devices, bool prune);

// Takes out the pins of volumes whose caches do not hold them beside what is pinned, queued and
// `repinned`, once the plan's unpins are done.
void DropUnfitting(const ConfigState& state, const std::vector<FileRef>& repinned, ApplyPlan& plan);

}  // namespace client
