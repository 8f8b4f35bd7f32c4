// SPDX-License-Identifier: MIT
// Everything that can be told about one file.
#pragma once

#include <stdint.h>

#include <string>
#include <vector>

#include "client/request/file_job.h"
#include "client/service/service_state.h"
#include "client/volume/volume_view.h"

namespace client {

struct Sharer {
    std::string path;
    uint64_t units;  // in common
};

struct Explanation {
    FileRef file;
    bool mapped = false;
    std::string whyNotMapped;
    ServiceState service;
    VolumeView view;
    bool pinned = false;        // its inode is on the list
    std::string pinnedAs;       // the path that the list has for the inode, when it is another
    bool pathReplaced = false;  // the list has its path with another inode
    std::vector<std::string> queued;  // "request 7, 2nd in the queue: pin"
    bool queuedToPin = false;
    UnitRuns runs;
    uint64_t units = 0;
    uint64_t withBit = 0;
    uint64_t set = 0;
    uint64_t driver = 0;
    uint64_t resident = 0;
    uint64_t neverWritten = 0;  // bytes
    std::vector<Sharer> sharers;
};

// Fills the rest of an explanation whose file is examined. `volumes` are those the file points
// into.
void FillExplanation(const std::string& configPath, const std::vector<Volume>& volumes,
                     Explanation& explanation);

// Why units of the file are not in the cache; empty when all are, or when that is not known.
std::string WhyNotResident(const Explanation& explanation);

}  // namespace client
