// SPDX-License-Identifier: MIT
// Where this machine means volumes to be mounted, whether they are or not.
#pragma once

#include <string>
#include <vector>

namespace client {

// Returns the mount points of /etc/fstab, in its order; none when it cannot be read.
std::vector<std::string> ExpectedMounts();

// Returns the longest of these mount points that the path, which must be normal, is or lies below
// and at which nothing is mounted; empty when there is none. A mount point that does not exist has
// nothing mounted at it.
std::string FindUnmounted(const std::string& path, const std::vector<std::string>& mountPoints);

}  // namespace client
