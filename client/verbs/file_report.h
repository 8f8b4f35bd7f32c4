// SPDX-License-Identifier: MIT
// What pin and unpin say of the files that they were given.
#pragma once

#include "client/request/file_job.h"
#include "client/show/report.h"

namespace client {

// Adds what was chosen, refused and sent to the JSON form.
void DescribeJob(const FileJob& job, Record& report);

// Adds what was sent, by volume, to the text form.
void AddSent(const FileJob& job, const char* verb, Record& report);

}  // namespace client
