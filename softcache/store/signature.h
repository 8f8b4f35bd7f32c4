// SPDX-License-Identifier: MIT
// What lies on a file or block device, as libblkid knows it.
#pragma once

#include <string>

namespace softcache {

struct Signature {
    std::string what;  // "an ext4 file system", "a gpt partition table"; empty = none was found
    std::string uuid;  // of a file system and the like, empty when it has none
};

// Looks at an open file, which must not be open for direct access; `path` is for its message alone.
// Returns an empty text, or why that cannot be found out.
std::string FindSignature(int fd, const std::string& path, Signature& found);

}  // namespace softcache
