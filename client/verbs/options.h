// SPDX-License-Identifier: MIT
// What the command line says.
#pragma once

#include <stdint.h>

#include <string>

#include "client/request/file_list.h"
#include "client/request/sending.h"

namespace client {

// For every verb.
struct CommonOptions {
    bool json = false;
    std::string configPath;  // the service's configuration file; empty = found from its process
};

// pin and unpin.
struct FileVerbOptions {
    CommonOptions common;
    SendOptions send;
    FileListOptions list;
    bool keepGoing = false;   // send the others when some are refused
    bool dryRun = false;      // show the price, send nothing
    bool overcommit = false;  // pin: also what does not fit into the cache
    bool repin = true;        // unpin: pin again what shares units
};

// reload, pend and release.
struct VolumeVerbOptions {
    CommonOptions common;
    SendOptions send;
    std::string volume;    // empty with `missing`: all
    bool missing = false;  // reload: where pinned units are not in the cache
};

struct WaitVerbOptions {
    CommonOptions common;
    SendOptions send;    // its timeout
    std::string volume;  // empty = all
};

constexpr char kSortByPath[] = "path";
constexpr char kSortBySize[] = "size";        // the largest first
constexpr char kSortByMissing[] = "missing";  // of which most is not in the cache

struct ListOptions {
    CommonOptions common;
    std::string volume;    // empty = all
    bool paths = false;    // paths alone, one a line
    bool volumes = false;  // of the volumes, not of files
    bool nulSeparated = false;
    bool details = false;  // units, and how many of them are in the cache
    std::string sort;      // one of these three; empty = by path
};

struct StatusOptions {
    CommonOptions common;
    bool watch = false;  // again and again, until a signal
};

struct MetricsOptions {
    CommonOptions common;
    std::string output;  // empty = standard output
};

struct HealthOptions {
    CommonOptions common;
    bool restart = false;  // of a service that runs and does not work
};

struct CheckOptions {
    CommonOptions common;
    SendOptions send;
    std::string volume;  // empty = all
    bool repair = false;
    bool restart = false;     // the service rests while it is repaired
    bool overcommit = false;  // pin also what does not fit into the cache
};

struct ExplainOptions {
    CommonOptions common;
    std::string path;
};

struct MapOptions {
    CommonOptions common;
    std::string volume;
    std::string output;  // empty = the terminal; else a file, .svg or .html
    bool force = false;  // replace a file that is there
    unsigned width = 0;  // columns; 0 = the terminal's
};

struct ApplyOptions {
    CommonOptions common;
    SendOptions send;
    std::string directory;    // empty = kPinConfDirectory
    bool dryRun = false;      // show what would be asked for, send nothing
    bool prune = false;       // unpin what no line wants
    bool overcommit = false;  // pin also what does not fit into the cache
};

struct RestoreOptions {
    CommonOptions common;
    uint64_t copy = 0;     // its number; 0 = list them
    bool restart = false;  // the service rests meanwhile
};

struct ForgetOptions {
    CommonOptions common;
    std::string mountPath;  // as the service's list has it
};

struct ReadyOptions {
    CommonOptions common;
};

struct DoctorOptions {
    CommonOptions common;
    bool fix = false;
};

}  // namespace client
