// SPDX-License-Identifier: MIT
// Taking away links of plain names that no request needs any more.
#pragma once

#include <string>
#include <vector>

#include "client/service/config_state.h"
#include "client/volume/file_ref.h"

namespace client {

// After an unpin was waited for: takes away the links of its files that are neither listed nor
// queued to be pinned now, and on their volumes the links that are the last names of their files.
void RemoveLinksOf(const std::vector<FileRef>& unpinned, const ConfigState& state);

// Takes away the links of the volume whose files no list and no queued request names, under
// whatever mount path. Somebody may have made one to ask for its file next: so only while no
// service runs and nothing waits for one. Returns the relative paths of those taken away.
std::vector<std::string> RemoveUnneededLinks(const std::string& mountPath,
                                             const ConfigState& state);

}  // namespace client
