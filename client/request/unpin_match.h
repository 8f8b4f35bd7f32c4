// SPDX-License-Identifier: MIT
// What unpin is given against the service's list. The list knows a file by its inode, a request
// names what lies at a path now.
#pragma once

#include "client/request/file_job.h"

namespace client {

// Compares what the job names with the list, and sorts it: files that are not pinned are noted; a
// file that took the place of a listed one is passed over; what was refused and stands on the list
// gets the reason that its fate gives. Names all listed entries whose file does not lie there.
void MatchWithList(const ConfigState& state, FileJob& job);

// Says on standard error what differs.
void SayMatch(const FileJob& job);

}  // namespace client
