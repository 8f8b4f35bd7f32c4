// SPDX-License-Identifier: MIT
// The directories of links (see stale_entries.h) that a command which was killed has left behind.
#pragma once

#include <time.h>

#include <string>

namespace client {

// What their names begin with; six characters follow.
constexpr char kLinkDirectory[] = ".quorcachepinctl-";

// Whether a directory at the top of a volume has a name of that form.
bool IsLinkDirectoryName(const std::string& name);

// Makes a directory at the top of the volume and locks it for as long as the descriptor stays open,
// so that nobody takes it for a leftover. Returns the descriptor, or -1 with errno.
int MakeLinkDirectory(const std::string& mountPath, std::string& directory);

// Removes the volume's leftovers, unless a message that names them may be waiting. What was made
// or taken from the queue less than `settled` seconds ago may still be at work.
void RemoveLeftovers(const std::string& mountPath, time_t settled = 5);

}  // namespace client
