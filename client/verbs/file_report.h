// SPDX-License-Identifier: MIT
// What pin and unpin say of what they sent.
#pragma once

#include <json/json.h>

#include <vector>

#include "client/request/file_job.h"

namespace client {

Json::Value JobToJson(const FileJob& job, const char* verb);

// The listed entries whose file does not lie at its path, each with its fate.
Json::Value EntriesToJson(const std::vector<PinnedFile>& entries);

void PrintSent(const FileJob& job, const char* verb);

}  // namespace client
