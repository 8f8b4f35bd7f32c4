// SPDX-License-Identifier: MIT
// Copies of the service's lists of pinned files, beside its configuration file: FILE.copy-N, the
// higher the number the newer. Each is a configuration file that holds the lists alone: what was
// queued when it was made has been carried out since, and must not be once more.
#pragma once

#include <json/json.h>
#include <stddef.h>
#include <stdint.h>
#include <time.h>

#include <string>
#include <vector>

#include "client/service/config_state.h"
#include "client/service/stored_list.h"

namespace client {

constexpr size_t kCopiesKept = 5;

struct StoreCopy {
    uint64_t number = 0;
    std::string path;
    time_t made = 0;
    bool good = false;                      // it can be read
    size_t files = 0;                       // that it lists
    std::map<std::string, size_t> volumes;  // files by mount path, those that have any
};

// Returns the copies of the configuration file at `path`, the newest first.
std::vector<StoreCopy> ListCopies(const std::string& path);

// Returns the newest copy that can be read, null when there is none.
const StoreCopy* NewestGood(const std::vector<StoreCopy>& copies);

// Returns the sum over all volumes.
size_t Sum(const std::map<std::string, size_t>& counts);

// Returns how many files, by mount path, the copy lists of which the list has neither the inode nor
// the path any more. Empty when there are none, or when the copy cannot be read.
std::map<std::string, size_t> FilesNotListed(const StoreCopy& copy, const ConfigState& now);

// What a copy was made for, and what it tells.
struct KeptCopy {
    uint64_t number = 0;  // 0: the list is that of the last copy, or there never was a list
    std::string lost;  // what the last copy has and the list has lost, in words; empty if nothing
};

// Makes a copy of the locked file's lists when they differ from the newest copy's. Of more than
// kCopiesKept the oldest goes, yet never the one that lists most. Returns false, with the reason in
// `why`.
bool KeepCopy(const StoredList& store, KeptCopy& kept, std::string& why);

// Puts the copy's lists back, with the store locked and no service running. In a store that can be
// read the lists change and nothing else, after a copy of them was made; one that cannot is put
// aside as FILE.unreadable-N, a name that `aside` gets, and the copy takes its place. Returns
// false, with the reason in `why`; the store is then as it was.
bool PutBack(const StoreCopy& copy, StoredList& store, std::string& aside, std::string& why);

}  // namespace client
