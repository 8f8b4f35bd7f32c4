// SPDX-License-Identifier: MIT
// Which files lie where on a device.
#pragma once

#include <stdint.h>

#include <string>
#include <vector>

#include "client/volume/units.h"

namespace client {

struct FilePlace {
    std::string path;
    UnitRuns units;
};

class FilePlaces {
  public:
    FilePlaces() = default;
    explicit FilePlaces(const std::vector<FilePlace>& files);

    // Returns the paths of the files that have units in [first, end), each once, by the first of
    // these units.
    std::vector<std::string> Between(uint64_t first, uint64_t end) const;

  private:
    struct Stretch {
        UnitRun run;
        size_t file;     // of paths_
        uint64_t reach;  // the last unit of this stretch and of all before it
    };

    std::vector<std::string> paths_;
    std::vector<Stretch> stretches_;  // by their first units; small files share one
};

}  // namespace client
