// SPDX-License-Identifier: MIT
// Files that remember what was written to them and what was brought to stable storage, so that a
// test can say what a loss of power leaves of them.
#pragma once

#include <array>
#include <random>
#include <vector>

#include "tests/unit/softcache/test_files.h"

namespace softcache {

// A write, or bringing all writes before it to stable storage.
struct DiskEvent {
    size_t disk;  // its place in WatchDisks
    bool isSync;
    uint64_t offset;
    Bytes bytes;
};

// From now on what happens to these descriptors is noted, and no sync of them takes time; an empty
// list ends it. `diskEvents` begins anew.
void WatchDisks(const std::vector<int>& fds);
std::vector<DiskEvent> TakeDiskEvents();
size_t DiskEventsSoFar();

// The contents of a disk that loses power.
class FragileDisk {
  public:
    explicit FragileDisk(Bytes content) : stable_(std::move(content)) {}

    void Apply(const DiskEvent& event);

    // What is there after a loss of power: what is on stable storage, and every sector that was
    // written since with this probability (1 = the machine lives on, only the process has gone).
    Bytes AfterLoss(double kept, std::mt19937_64& random) const;

  private:
    Bytes stable_;
    std::vector<DiskEvent> pending_;
};

}  // namespace softcache
