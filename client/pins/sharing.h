// SPDX-License-Identifier: MIT
// Units that several files share. The service keeps one bit a unit and clears it when any of them
// is unpinned; the others are then pinned again, by requests that follow in the same queue.
#pragma once

#include <string>
#include <vector>

#include "client/pins/pinned_now.h"
#include "client/request/file_job.h"
#include "client/service/config_state.h"

namespace client {

// Fills the job's files to mend and their messages: what stays pinned, or is queued to be, and
// shares a unit with a file to be unpinned.
void PlanMending(const ConfigState& state, FileJob& job);

}  // namespace client
