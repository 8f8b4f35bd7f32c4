// SPDX-License-Identifier: MIT
// What pin and unpin say of what they sent.
#pragma once

#include <json/json.h>

#include <vector>

#include "client/request/file_job.h"
#include "client/request/list_match.h"

namespace client {

Json::Value JobToJson(const FileJob& job, const ListMatch& match, const char* verb);

void PrintSent(const FileJob& job, const char* verb);

// Says that requests for entries which no plain request reaches are on their way.
void PrintStaleSent(const std::vector<StaleEntry>& entries);

// Says what became of those entries; `still` are on the list after all. What their files had set
// stays so: the service does not learn which units that was.
void PrintStale(const std::vector<StaleEntry>& entries, const std::vector<StaleEntry>& still);

}  // namespace client
