// SPDX-License-Identifier: MIT
// The entries of the service's list that a path names, and what has become of their files.
#pragma once

#include <map>
#include <string>
#include <vector>

#include "client/pins/pinned_file.h"

namespace client {

// Returns the listed files that the paths name and that no request unpins, since they do not lie
// there or are empty, keyed by the path as it was given. A path names an entry when it is the one
// that `list` prints, or becomes that once its directory is resolved as far as it exists.
//
// Each volume is searched only once, whatever the number of paths. The result points into
// `volumes`.
std::multimap<std::string, PinnedFile> EntriesNamed(const std::vector<std::string>& paths,
                                                    const ConfigState& state,
                                                    const std::vector<Volume>& volumes);

// Returns why no request unpins such a file, and the remedy: the rest of a sentence.
std::string WhyNotUnpinnable(const PinnedFile& pinned);

}  // namespace client
