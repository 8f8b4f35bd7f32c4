// SPDX-License-Identifier: MIT
// Replacing a file in one step while no service uses it.
#pragma once

#include <string>

namespace client {

// Puts a file of exactly these bytes in the place of the one at `path`: a crash leaves either the
// old one or the new one. It gets mode and owner of the file at `model`, which must be there; an
// empty `model` leaves it this process's, for all to read. A symbolic link at `path` is not
// replaced and not followed. Returns false, with the reason in `why`; the old file is then still
// there.
bool ReplaceFile(const std::string& path, const std::string& bytes, const std::string& model,
                 std::string& why);

}  // namespace client
