// SPDX-License-Identifier: MIT
// What the SSD of a cache holds, in words.
#pragma once

#include <string>

namespace softcache {

// Reads the SSD, changes nothing. Stores some lines; returns an empty text, or one line that names
// the SSD and what is wrong with it.
std::string InspectSsd(const std::string& path, std::string& lines);

}  // namespace softcache
