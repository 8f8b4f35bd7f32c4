// SPDX-License-Identifier: MIT
// The entries of the service's list that a path names, and what has become of their files.
#pragma once

#include <map>
#include <string>
#include <vector>

#include "client/pins/pinned_file.h"

namespace client {

// Returns the listed files that the paths name and that do not lie there, keyed by the path as it
// was given. A path names an entry when it is the one that `list` prints, or becomes that once its
// directory is resolved as far as it exists.
//
// Each volume is searched only once, whatever the number of paths. The result points into
// `volumes`.
std::multimap<std::string, PinnedFile> EntriesNamed(const std::vector<std::string>& paths,
                                                    const ConfigState& state,
                                                    const std::vector<Volume>& volumes);

// Returns why such a file does not lie at its path, and the remedy: the rest of a sentence.
std::string WhyNotThere(const PinnedFile& pinned);

}  // namespace client
