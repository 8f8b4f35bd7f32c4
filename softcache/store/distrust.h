// SPDX-License-Identifier: MIT
// Notes of SSDs whose copies must not be believed, kept where the SSD is not: of one that could be
// written no more, not even to say so itself.
#pragma once

#include <string>

#include "softcache/store/ssd_format.h"

namespace softcache {

// On the root file system, which is there before any cache is.
std::string DefaultDistrustDirectory();

// A note is an empty file, named by the SSD's id and the seed of its table: a table that was made
// invalid later has another seed, and the note says nothing of it.
class Distrust {
  public:
    // The directory is made with the first note.
    explicit Distrust(std::string directory) : directory_(std::move(directory)) {}

    // Notes the table of this head, on stable storage. Returns 0 or -errno.
    int Note(const SsdHead& head) const;

    // Whether it is noted, or that cannot be found out.
    bool Has(const SsdHead& head) const;

    void Forget(const SsdHead& head) const;

  private:
    std::string PathOf(const SsdHead& head) const;

    const std::string directory_;
};

}  // namespace softcache
