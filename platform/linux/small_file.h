// SPDX-License-Identifier: MIT
// Reading a file whole: a settings or registry file, or what the kernel shows as one.
#pragma once

#include <stddef.h>

#include <string>

namespace stand_in {

constexpr size_t kSmallFileLimit = size_t{1024} * 1024;  // bytes; a real one has a few hundred

// Opens the regular file `path` for reading; `flags` are further flags for open(2), such as
// O_NOFOLLOW. A pipe or a device in the file's place is refused without waiting for it (EINVAL).
// Returns the descriptor, which the caller closes, or -1 with errno set.
int OpenSmallFile(const std::string& path, int flags);

// Reads the rest of the file into `content`. Returns false with errno set when it cannot be read or
// is longer than the limit (EFBIG); `content` is then untouched.
bool ReadSmallFile(int fd, std::string& content);

// The same for a file of whatever length.
bool ReadAll(int fd, std::string& content);

}  // namespace stand_in
