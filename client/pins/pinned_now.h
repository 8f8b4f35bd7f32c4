// SPDX-License-Identifier: MIT
// What has become of the files that the service lists as pinned. That one is gone is only believed
// where it was looked for on its volume: what is said to be gone loses its entry and its units.
#pragma once

#include <string>
#include <vector>

#include "client/request/file_check.h"
#include "client/service/config_state.h"
#include "client/volume/mapping.h"

namespace client {

enum class PinnedState {
    kThere,      // it lies at its path
    kGone,       // nothing lies at its path, and it is not in the directory under another name
    kReplaced,   // another file lies at its path
    kOtherName,  // it lies in the directory under another name, and stays pinned under its inode
    kUntold,     // it cannot be told, or its extents cannot
};

struct PinnedNow {
    StoredFile stored;
    PinnedState state;
    FileRef file;     // filled when it is there; its extents (none when it is empty now) also when
                      // it lies under another name
    std::string why;  // in words; empty only when it is there
};

// Looks at one file that is listed, or queued, for the volume.
PinnedNow LookAtStored(const StoredFile& stored, const Volume& volume,
                       const std::vector<Volume>& volumes, Mapper& mapper);

// Looks at every file that the configuration lists as pinned on the volume.
std::vector<PinnedNow> LookAtPinned(const ConfigState& state, const Volume& volume,
                                    const std::vector<Volume>& volumes, Mapper& mapper);

}  // namespace client
