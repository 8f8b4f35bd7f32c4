// SPDX-License-Identifier: MIT
// Block devices by what is on them: UUID=, LABEL=, PARTUUID= and PARTLABEL=.
#pragma once

#include <string>

namespace softcache {

// Replaces a tag by the path of the block device that it names, and leaves any other text as it is.
// A device that a cache serves shows the same file system as its backing, and is never meant.
// Returns an empty text, or why there is no such device.
std::string ResolveTag(std::string& text);

}  // namespace softcache
