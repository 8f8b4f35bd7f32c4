// SPDX-License-Identifier: MIT
// Whether an SSD may be taken for a cache: what it holds, before a byte of it is written.
#pragma once

#include <stdint.h>

#include <string>

#include "softcache/store/ssd_store.h"

namespace softcache {

enum class SsdKind {
    kEmpty,  // nothing that anybody could miss
    kOurs,   // the cache of this backing
    kElse,   // something else; `found` says what
};

struct Examination {
    SsdKind kind = SsdKind::kElse;
    std::string found;  // "holds an ext4 file system, UUID ...": the rest of a sentence
};

// Fills in the UUID of what lies on the backing. Returns an empty text, or why the backing cannot
// be one, without its name: it is the SSD of a cache, or cannot be read.
std::string ExamineBacking(int fd, std::string& uuid);

// Examines the SSD for a backing and its cache. `store` has it open; a head is loaded into it.
// Returns an empty text, or why that cannot be found out.
std::string ExamineSsd(SsdStore& store, const SsdIdentity& wanted, Examination& result);

// Whether a cache made for `held` is one for `wanted`: by the UUID where both have one, else by
// name and path.
bool IsSameVolume(const SsdIdentity& held, const SsdIdentity& wanted);

}  // namespace softcache
