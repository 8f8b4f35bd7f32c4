// SPDX-License-Identifier: MIT
// Hard links with plain names, for files whose names no request can carry: the link to the file of
// inode 12 is .quorcachepin/12 at the top of its volume. The directory is root's and nobody else's,
// and a link is told from any other file by the inode number that is its name. Where the file
// itself lies is looked up by that number: nothing is stored about it.
#pragma once

#include <stddef.h>
#include <stdint.h>

#include <string>
#include <vector>

#include "client/volume/file_ref.h"

namespace client {

// Whether the file has its link, in a directory that is as it has to be.
bool HasLink(const std::string& mountPath, uint32_t inode);

// Makes the link of a file, which must be the one that was examined. Returns false, with the reason
// in `why`. A link that is there already is taken.
bool MakeLink(const FileRef& file, std::string& why);

// Returns the inode numbers of the files that have their links.
std::vector<uint32_t> LinkedInodes(const std::string& mountPath);

// Takes away the file's link, and the directory once it is empty. The file must have another name:
// one that has not stays. Returns whether the link is gone.
bool RemoveLink(const std::string& mountPath, uint32_t inode);

// Takes away the links that are the last names of their files, so that these are gone at last.
// Returns the relative paths of those taken away.
std::vector<std::string> RemoveLastNames(const std::string& mountPath);

}  // namespace client
