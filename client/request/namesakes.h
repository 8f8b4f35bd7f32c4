// SPDX-License-Identifier: MIT
// Files that the service could not tell from one another: it keeps the low 32 bits of an inode
// number, and a volume of more than 2 TiB has numbers that differ only above.
#pragma once

#include <vector>

#include "client/request/file_list.h"
#include "client/service/config_state.h"

namespace client {

// Moves to the refusals each file that shares these bits with another file that is on the list,
// queued to be, or named before it: pinned, it would take that one's place in the list.
void RefuseNamesakes(const ConfigState& state, const std::vector<Volume>& volumes, FileList& list);

}  // namespace client
