// SPDX-License-Identifier: MIT
// Whether the service can take a file: what it could not store, or what would end its intake or
// drop the request, is found here, before anything is sent.
#pragma once

#include <stdint.h>

#include <string>
#include <vector>

#include "client/volumes.h"
#include "platform/quordataverifier.h"

// A file that may be named in a request.
struct FileRef {
    const Volume* volume;                   // alive as long as the list of volumes
    std::string path;                       // absolute, its directory resolved
    std::string relative;                   // below the mount path
    uint32_t inode;                         // the low half, which is what the service keeps
    uint64_t size;                          // bytes
    std::vector<FileMappingEntry> extents;  // filled by whoever maps the file
};

// A file that must not be named in one.
struct Refusal {
    std::string path;  // as it was given
    std::string reason;
};

// Returns why the service could not store a file of this mount path and relative path, empty when
// it can.
std::string WhyNotStorable(const std::string& mountPath, const std::string& relative);

// Returns why the service could not work with this mount path, empty when it can.
std::string WhyNotMountPath(const std::string& mountPath);

// Returns the path that a request names the file by: the mount path, "/" and the relative path.
std::string PathInRequest(const std::string& mountPath, const std::string& relative);

// Resolves and checks a path. Returns false, with the reason in `why`, when no request can name it.
bool ExamineFile(const std::string& given, const std::vector<Volume>& volumes, FileRef& file,
                 std::string& why);
