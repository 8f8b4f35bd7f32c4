// SPDX-License-Identifier: MIT
// Finds out, before anything is sent, whether the service can take a file: it must be able to store
// its name, and the file must neither end intake nor make the service drop the request.
#pragma once

#include <string>
#include <vector>

#include "client/pins/rest_plan.h"
#include "client/volume/file_ref.h"

namespace client {

// Why a directory is refused; a verb that walks directories adds how.
constexpr char kIsDirectory[] = "is a directory";

// A file that must not be named in a request.
struct Refusal {
    std::string path;  // as it was given
    std::string reason;
};

// Returns why the service could not store a file with this mount path and relative path; empty when
// it can.
std::string WhyNotStorable(const std::string& mountPath, const std::string& relative);

// Returns why the service could not work with this mount path; empty when it can.
std::string WhyNotMountPath(const std::string& mountPath);

// Whether the file lies right and its name alone keeps it from being named, so that a link with a
// plain name helps.
bool CanBeLinked(const FileRef& file);

// Whether the file is the bitmap file of its volume, which the service itself writes.
bool IsBitmapFile(const FileRef& file);

// Resolves and checks a path. Returns false, with the reason in `why`, when no request can name the
// file; where its name alone is in the way, `file` is filled all the same. A file that has its link
// of plain name is named by that: `relative` is then the link's, `path` stays the file's own.
bool ExamineFile(const std::string& given, const std::vector<Volume>& volumes, FileRef& file,
                 std::string& why);

// Maps the file. Returns false, with the reason in `why`, when the service could not map it.
bool MapForRequest(Mapper& mapper, FileRef& file, std::string& why);

// Returns the file at the path of each entry whose own file was replaced. The files point into
// `volumes`.
Followers FindFollowers(const std::vector<DeviceState>& devices,
                        const std::vector<Volume>& volumes);

}  // namespace client
