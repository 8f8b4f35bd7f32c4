// SPDX-License-Identifier: MIT
// What pin and unpin say of what they were given and sent.
#pragma once

#include "client/request/file_job.h"
#include "client/show/report.h"

namespace client {

// Describes a file: path, volume, inode, size.
Record DescribeFile(const FileRef& file);

// Adds what the job consists of, in the JSON form alone.
void AddJob(const FileJob& job, Record& report);

// Adds what was sent, in words.
void AddSent(const FileJob& job, const char* verb, Record& report);

}  // namespace client
