// SPDX-License-Identifier: MIT
// When the last repair was, kept beside the service's configuration file as FILE.repaired.
#pragma once

#include <stddef.h>
#include <time.h>

#include <optional>
#include <string>

namespace client {

struct RepairRecord {
    time_t at = 0;
    size_t left = 0;  // things that it did not set right
};

// Notes a repair beside the configuration file at `path`, which lends mode and owner where it is
// there. Returns false, with the reason in `why`.
bool NoteRepair(const std::string& path, const RepairRecord& record, std::string& why);

// Returns what was noted last; nothing when no repair was, or what is there cannot be read.
std::optional<RepairRecord> ReadRepairRecord(const std::string& path);

}  // namespace client
