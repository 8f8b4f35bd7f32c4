// SPDX-License-Identifier: MIT
// Compares what unpin is given with the service's list. The list knows a file by its inode, whereas
// a request names whatever lies at a path now.
#pragma once

#include "client/request/file_job.h"

namespace client {

// Sorts what the job names. Files that are not pinned are noted; a file that took the place of a
// listed one is passed over; a refused path that is on the list gets the fate of the listed file as
// its reason. Collects all entries named whose files do not lie there.
void MatchWithList(const ConfigState& state, FileJob& job);

// Says on standard error which files were passed over or not pinned.
void SayMatch(const FileJob& job);

}  // namespace client
