// SPDX-License-Identifier: MIT
// The files that the lines of a configuration come to now.
#pragma once

#include <map>
#include <string>
#include <vector>

#include "client/request/pin_conf.h"
#include "client/volume/file_ref.h"

namespace client {

struct WantedFiles {
    std::vector<FileRef> files;                  // in order, none twice
    std::map<std::string, std::string> origins;  // by the file's path: the line that named it first
    std::vector<ConfFault> refused;              // what no request can name
    std::vector<ConfFault> notMounted;           // lines whose volume is not there: left alone
    std::vector<std::string> notes;              // what was passed over, in words
};

// Expands the lines: a directory means all files below it. `mountPoints` are those at which a
// volume is meant to be; a line at or below one with nothing mounted is left alone. The files point
// into `volumes`.
WantedFiles FindWanted(const PinConf& conf, const std::vector<std::string>& mountPoints,
                       const std::vector<Volume>& volumes);

}  // namespace client
