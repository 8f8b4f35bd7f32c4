// SPDX-License-Identifier: MIT
// Replacing a file in one step while no service uses it.
#pragma once

#include <string>

namespace client {

// Whose file the new one is.
enum class Ownership {
    kOurs,   // this process's, for all to read, whatever lay there
    kTheOld  // that of the old file, which must be there, with its mode
};

// Puts a file of exactly these bytes in the place of the one at `path`: a crash leaves either the
// old one or the new one. A symbolic link at `path` is not replaced and not followed. Returns
// false, with the reason in `why`; the old file is then still there.
bool ReplaceFile(const std::string& path, const std::string& bytes, Ownership ownership,
                 std::string& why);

}  // namespace client
