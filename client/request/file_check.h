// SPDX-License-Identifier: MIT
// Whether the service can take a file: what it could not store, or what would end its intake or
// drop the request, is found here, before anything is sent.
#pragma once

#include <stdint.h>

#include <string>
#include <vector>

#include "client/volume/file_ref.h"

namespace client {

// A file that must not be named in a request.
struct Refusal {
    std::string path;  // as it was given
    std::string reason;
};

// Returns why the service could not store a file of this mount path and relative path, empty when
// it can.
std::string WhyNotStorable(const std::string& mountPath, const std::string& relative);

// Returns why the service could not work with this mount path, empty when it can.
std::string WhyNotMountPath(const std::string& mountPath);

// Resolves and checks a path. Returns false, with the reason in `why`, when no request can name it.
bool ExamineFile(const std::string& given, const std::vector<Volume>& volumes, FileRef& file,
                 std::string& why);

}  // namespace client
