// SPDX-License-Identifier: MIT
// Which entries of the service's list a path names, and what has become of their files.
#pragma once

#include <map>
#include <string>
#include <vector>

#include "client/pins/pinned_file.h"

namespace client {

// Returns the listed files that the paths name and that do not lie there. A path names an entry
// when it is the one that `list` prints, or becomes that when its directory is resolved as far as
// it exists. By the path as it was given. Searches a volume once, whatever the number of paths. The
// result points into `volumes`.
std::multimap<std::string, PinnedFile> EntriesNamed(const std::vector<std::string>& paths,
                                                    const ConfigState& state,
                                                    const std::vector<Volume>& volumes);

// Returns why the path of such a file does not lead to it, with the remedy; a sentence's rest.
std::string WhyNotThere(const PinnedFile& pinned);

}  // namespace client
