// SPDX-License-Identifier: MIT
// Finding a file by the number of its inode.
#pragma once

#include <stdint.h>
#include <sys/types.h>

#include <string>

namespace stand_in {

// Opens for reading the regular file in `directory` whose inode number has these low 32 bits, and
// stores its name. File and directory must lie on the file system with the number `device`. Several
// names may lead to one file. Two files whose numbers differ in the upper half only are ambiguous,
// which is a failure. Who asks for many files of one directory makes it read once, and again when a
// name in it comes or goes. Returns the descriptor, which the caller closes, or -1, having said
// why.
int OpenFileByInode(const std::string& directory, dev_t device, uint32_t inode, std::string& name);

}  // namespace stand_in
