// SPDX-License-Identifier: MIT
// Small file helpers. Each logs its own failure, naming the file.
#pragma once

#include <stddef.h>
#include <stdint.h>

#include <string>

// Returns 1 when the path can be stat-ed, whatever it leads to, else 0. Silent.
int FileExists(const char* path);

// Creates or truncates the file and writes the text's bytes, nothing more. Returns 0, or -1.
int FileWriteString(const char* path, const std::string& text);

// Stores the file's first line, its newline included when it has one. Returns 0, or -1 when the
// file cannot be opened or holds nothing; `text` is then untouched.
int FileReadString(const char* path, std::string& text);

// Stores the content of a regular file, at most its first `limit` bytes, with the log lines of
// FileReadString. Anything else than a regular file counts as empty, and is never waited for.
// Returns 0, or -1 with `text` untouched when the file cannot be opened or is empty.
int FileReadContent(const char* path, size_t limit, std::string& text);

// Stores the file's size in bytes. Returns 0, or -1 with `size` untouched.
int FileGetSizeByte(const char* path, uint64_t* size);

// Stores the low 32 bits of the file's inode number. Returns 0, or -1 with `inode` untouched.
int FileGetInodeNumber(const char* path, unsigned long* inode);
