// SPDX-License-Identifier: MIT
// The command line of quorsoftcache.
#pragma once

#include <stdint.h>

#include <optional>
#include <string>

namespace softcache {

struct Options {
    std::string name;
    std::string backing;
    std::string ssd;
    std::string mountPoint;
    std::string registryDirectory;
    std::string distrustDirectory;
    uint64_t ssdSize = 0;  // bytes; 0 = what the SSD has
    int32_t state = 1;
    bool supportPin = true;
    bool format = false;     // overwrite whatever the SSD holds
    bool testDoors = false;  // take orders to fail
    std::string inspect;     // an SSD to describe instead of serving
    bool device = false;     // attach a loop device
};

// Parses the command line. Returns the exit status when there is nothing to serve: 0 after --help
// and --version, 2 after an error, having said so.
std::optional<int> ParseOptions(int argc, char** argv, Options& options);

}  // namespace softcache
