// SPDX-License-Identifier: MIT
// Setting right what a check found.
//
// What can be done by requests is done by requests: files are pinned again; a file that was
// replaced is pinned in its new form. Two things no plain request can do:
//
// - The list knows a file by its inode, and an unpin request takes the inode from what lies at the
//   path now. The entry of a file that is gone is therefore reached by way of the stored form, in
//   which everything behind the first "#" of an entry is the inode: an unpin request for the name
//   "gone#N" is read as one for inode N. The service finds no such file, drops the request and
//   takes N off its list. The name is a hard link in a directory of ours, there only until the
//   request is stored.
// - Bits over space that no file has any more are in no file's extents; see sweep.h.
#pragma once

#include <string>
#include <vector>

#include "client/pins/check.h"
#include "client/verbs/options.h"
#include "client/service/service_state.h"

namespace client {

struct RepairReport {
    size_t requests = 0;                 // sent
    uint64_t unitsCleared = 0;           // in bitmap files
    std::vector<std::string> actions;    // what was done or, by requests that were sent, asked for
    std::vector<std::string> obstacles;  // what could not be done, in words
};

// Repairs the volumes that are not clean and waits for the requests. Returns kExitDone when all
// requests are done, whatever they came to, else the exit status. The report tells what was done
// either way.
int Repair(const std::vector<VolumeCheck>& checks, const std::vector<Volume>& volumes,
           const ServiceState& service, const SendOptions& options, RepairReport& report);

}  // namespace client
