// SPDX-License-Identifier: MIT
// The platform's four libraries, replaced: answers from a table, every call recorded, and whatever
// is handed out followed until it is released. Releasing a thing twice, or one that was never
// handed out, fails the test at once.
#pragma once

#include <stdint.h>

#include <functional>
#include <map>
#include <string>
#include <vector>

#include "platform/quordataverifier.h"

struct FakeSpace {
    std::string referencePath;
    std::string uuid;
    bool hasUuid = true;  // false: QUORSpaceUUIDGet gives null
};

// Configuration of a space's cache. A space without an entry has none: result 0, no record.
struct FakeCacheConfig {
    std::string ssdPath;
    bool hasSsdPath = true;  // false: the record's text is null
    int result = 1;
    bool stored = true;  // whether a record is handed out, whatever the result
};

// Status of the cache on an SSD. An SSD without an entry gives result 0 and no record.
struct FakeCacheStat {
    int state = 1;
    int supportPin = 1;
    int result = 1;
    bool stored = true;
};

// Cached device of an SSD. An SSD without an entry gives result 0.
struct FakeCachePath {
    std::string path;
    int result = 1;
};

// A setting; a key without an entry gives result 0. The value is stored when the result is
// positive.
struct FakeKeyValue {
    std::string value;
    int result = 1;
};

// One answer of GetMappingTable. `entries` are stored whatever the result.
struct FakeMapping {
    std::vector<FileMappingEntry> entries;
    int result = 0;
};

struct FakePlatform {
    int enumResult = 0;
    bool storesListOnFailure = false;  // a failed listing hands out what it had found
    std::vector<FakeSpace> spaces;
    std::map<std::string, FakeCacheConfig> configs;   // by space UUID
    std::map<std::string, FakeCacheStat> stats;       // by SSD path
    std::map<std::string, FakeCachePath> cachePaths;  // by SSD path
    std::map<std::string, FakeKeyValue> settings;     // by "FILE:KEY"

    int devicePathResult = 0;
    std::string devicePath = "/dev/fakeVolume";
    bool createsDevice = true;  // false: Create gives null
    // By inode number; one after the other, the last one for good. An inode without an entry gives
    // an empty table, result 0.
    std::map<unsigned long, std::vector<FakeMapping>> mappings;

    // Every call with its arguments, in order, e.g. `QUORSpaceInfoEnum(1)`. A query whose reserved
    // words are not zero says so.
    std::vector<std::string> calls;

    // Runs before a call is answered; may change the answers.
    std::function<void(const std::string& call)> onCall;

    // A volume with a cache that supports pinning, its four names derived from nothing.
    void AddVolume(const std::string& mountPath, const std::string& uuid,
                   const std::string& ssdPath, const std::string& cachePath);

    // Calls of this name so far.
    int Count(const std::string& function) const;
};

// Answers are set before threads use them, or in onCall. Calls are recorded under a lock.
extern FakePlatform& g_platform;

void FakePlatformReset();

// What is handed out and not yet released, e.g. `space list`, `config /dev/ssd`. UUID texts are
// followed by the heap watch.
std::vector<std::string> PlatformRecordsHeld();
