// SPDX-License-Identifier: MIT
// The service's configuration file, read from outside: its queue and its lists of pinned files.
#pragma once

#include <stdint.h>

#include <map>
#include <string>
#include <vector>

namespace client {

// A file as the service keeps it.
struct StoredFile {
    std::string relative;
    uint32_t inode;
};

struct StoredRequest {
    std::string number;
    std::string type;  // the stored name, as "pinFiles"
    std::string mountPath;
    std::string data;  // empty when there is none
};

struct ConfigState {
    int64_t nextNumber = 0;
    std::vector<StoredRequest> queue;                       // in order
    std::map<std::string, std::vector<StoredFile>> pinned;  // by mount path; sorted by path
    std::vector<std::string> defects;  // what would end the worker or does not belong, in words
};

// Reads the file; a missing one is the empty state. The service rewrites it in place, so a file
// that does not parse is read again for a second. Returns false, with the reason in `why`.
bool ReadConfigState(const std::string& path, ConfigState& state, std::string& why);

// The service's configuration file, found and read.
struct ServiceState {
    bool known = false;
    std::string configPath;  // empty when it could not be found
    std::string why;         // why it is not known
    ConfigState state;
};

// `configPath`: the file; empty = found from the running service.
ServiceState ReadServiceState(const std::string& configPath);

// Splits stored data, "path#inode" joined by ";". Malformed entries are left out.
std::vector<StoredFile> ParseStoredFiles(const std::string& data);

// Returns the files of the pin requests that are queued for the volume, without those that a later
// unpin request names.
std::vector<StoredFile> QueuedToPin(const ConfigState& state, const std::string& mountPath);

// Returns how many numbers `number` lies behind `base`, in the order of numbering; less than half
// of all when it was given later.
int64_t NumberDistance(int64_t base, int64_t number);

}  // namespace client
