// SPDX-License-Identifier: MIT
// Writing a volume's bitmap file while no service uses it.
#pragma once

#include <stdint.h>

#include <string>
#include <vector>

namespace client {

// Puts a file of exactly these bytes in the place of the one at `path`, in one step: a crash leaves
// either the old one or the new one. A symbolic link at `path` is not replaced and not followed.
// Returns false, with the reason in `why`; the old file is then still there.
bool ReplaceBitmapFile(const std::string& path, const std::vector<uint8_t>& bytes,
                       std::string& why);

}  // namespace client
