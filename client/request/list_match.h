// SPDX-License-Identifier: MIT
// What unpin is given against the service's list. The list knows a file by its inode, a request
// names what lies at a path now; where the two are no longer the same, the entry needs a request of
// its own (see stale_release.h).
#pragma once

#include <map>
#include <set>
#include <string>
#include <vector>

#include "client/service/config_state.h"
#include "client/request/file_job.h"
#include "client/request/stale_entries.h"

namespace client {

// The entries of the volumes that keep pins, by the paths that they name.
class ListIndex {
  public:
    ListIndex(const ConfigState& state, const std::vector<Volume>& volumes);

    // The entries whose path is this one, as `list` prints it.
    std::vector<StaleEntry> Named(const std::string& path) const;

    // The entries that a path names also when its directory is first resolved, as far as that
    // exists; and how it is with their files.
    std::vector<StaleEntry> At(const std::string& path) const;

    // Whether the file is on the list, or queued to be, under whatever name.
    bool Has(const FileRef& file) const;

  private:
    void TakeVolume(const ConfigState& state, const Volume& volume);

    const std::vector<Volume>& volumes_;
    std::multimap<std::string, StaleEntry> entries_;
    std::map<const Volume*, std::set<uint32_t>> inodes_;
};

struct ListMatch {
    std::vector<StaleEntry> stale;       // named, and reached by no plain request
    std::vector<std::string> notPinned;  // files that are neither on the list nor queued to be
};

// Compares what the job names with the list. Refusals of what stands on the list are taken out of
// the job: their entries are among the stale ones.
ListMatch MatchList(const ConfigState& state, FileJob& job);

// Says on standard error what differs.
void SayMatch(const ListMatch& match);

Json::Value StaleToJson(const std::vector<StaleEntry>& entries);

}  // namespace client
