// SPDX-License-Identifier: MIT
// Small file helpers. Each logs its own failure, naming the file.
#pragma once

#include <stddef.h>
#include <stdint.h>

#include <string>

// Returns 1 when the path can be stat-ed, be it a file or a directory, else 0. Silent.
int FileExists(const char* path);

// Creates or truncates the file and writes the text's bytes, nothing more. Returns 0, or -1.
int FileWriteString(const char* path, const std::string& text);

// Stores the file's first line, its newline included when it has one. Returns 0, or -1 when the
// file cannot be opened or holds nothing; `text` is then untouched.
int FileReadString(const char* path, std::string& text);

// Stores what a regular file holds, its first `limit` bytes at most, with the lines in the log of
// FileReadString. Nothing is waited for: what is no regular file holds nothing. Returns 0, or -1
// when the file cannot be opened or holds nothing; `text` is then untouched.
int FileReadContent(const char* path, size_t limit, std::string& text);

// Stores the file's size in bytes. Returns 0, or -1 with `size` untouched.
int FileGetSizeByte(const char* path, uint64_t* size);

// Stores the low 32 bits of the file's inode number. Returns 0, or -1 with `inode` untouched.
int FileGetInodeNumber(const char* path, unsigned long* inode);
