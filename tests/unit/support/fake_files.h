// SPDX-License-Identifier: MIT
// The calls that take a path: a fixed path of the service can be led to a test's own file, and
// every open is recorded. Streams of the C++ library go past this.
#pragma once

#include <stdint.h>
#include <sys/types.h>

#include <string>
#include <vector>

void FakeFilesReset();

// Makes access, fopen, ftok, open and stat take `target` whenever `path` is asked for. Other names
// of the same file are not touched.
void RedirectPath(const std::string& path, const std::string& target);

// Gives the file another inode number (stat) or message-queue key (ftok) than it has.
void SetInodeNumber(const std::string& path, uint64_t inode);
void SetFileKey(const std::string& path, key_t key);

// One open; fopen is not recorded.
struct OpenRecord {
    std::string path;  // as asked for
    int flags = 0;
    mode_t mode = 0;  // 0 when the file is not to be created
};
std::vector<OpenRecord> OpensTried();

// Drops O_DIRECT on its way to the real open, for file systems that have none; records keep it.
void AllowDirectAnywhere();
