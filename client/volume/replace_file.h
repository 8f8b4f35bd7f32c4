// SPDX-License-Identifier: MIT
// Files that are written whole: made anew, or replaced in one step while no service uses them.
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

// Makes a file of these bytes, with the mode that the process's mask leaves. Returns false, with
// the reason in `why`: what is at `path` already, a symbolic link too, is left as it is, and no
// part of a file is left behind.
bool CreateFile(const std::string& path, const std::string& bytes, std::string& why);

}  // namespace client
