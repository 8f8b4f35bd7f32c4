// SPDX-License-Identifier: MIT
// What the command line says.
#pragma once

#include <string>

#include "client/file_list.h"

// For every verb.
struct CommonOptions {
    bool json = false;
    std::string configPath;  // the service's configuration file; empty = found from its process
};

// pin and unpin.
struct FileVerbOptions {
    CommonOptions common;
    FileListOptions list;
    bool keepGoing = false;      // send the others when some are refused
    unsigned sendPatience = 30;  // seconds that a full queue is given
};

// reload, pend and release.
struct VolumeVerbOptions {
    CommonOptions common;
    std::string volume;
    unsigned sendPatience = 30;
};
