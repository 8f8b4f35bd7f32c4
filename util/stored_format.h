// SPDX-License-Identifier: MIT
// How requests and pinned files are stored in the configuration file, for the service, which writes
// it, and for the operator's command, which reads it and packs messages that will fit.
//
//   nextRequestNum   the number of the next request; absent or null means 0
//   requestQueue     request numbers as texts, in order of arrival; null when the last one has gone
//   requests         number -> { type, mountPath, data }
//   volumes          mount path -> { files: inode number -> relative path }
//
// The data of a request about files is a list of entries such as "films/a.mkv#12;b.txt#13".
#pragma once

#include <stddef.h>
#include <stdint.h>

constexpr char kNextRequestNumKey[] = "nextRequestNum";
constexpr char kRequestQueueKey[] = "requestQueue";
constexpr char kRequestsKey[] = "requests";
constexpr char kVolumesKey[] = "volumes";
constexpr char kFilesKey[] = "files";
constexpr char kTypeKey[] = "type";
constexpr char kMountPathKey[] = "mountPath";
constexpr char kDataKey[] = "data";

// Request numbers go from 0 to one less, then begin again.
constexpr int32_t kRequestNumModulus = 2147483646;

// Bytes of the service's buffers, terminator included: for a stored text, and for one path (a
// file's relative path, its directory, a mount path with the end of its scanning pattern).
constexpr size_t kTextBufferSize = 1024;
constexpr size_t kPathBufferSize = 512;

// Characters of a list at most, of the paths that are sent as of the entries that are stored.
constexpr size_t kMostListLength = kTextBufferSize - 1;

// Between the paths or entries of a list; between the path and the inode number of an entry.
constexpr char kListSeparator = ';';
constexpr char kInodeMark = '#';

// An entry as it is written (separator or nothing, path, inode number) and as it is scanned (path
// of at most kPathBufferSize - 1 characters, where the number begins, inode number).
constexpr char kEntryFormat[] = "%s%s#%lu";
constexpr char kEntryScan[] = "%511[^#]#%n%lu";
