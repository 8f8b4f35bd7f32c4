// SPDX-License-Identifier: MIT
// What pinning or unpinning would cost, worked out without sending anything.
#pragma once

#include <stddef.h>
#include <stdint.h>

#include <map>
#include <string>
#include <vector>

#include "client/service/config_state.h"
#include "client/show/report.h"
#include "client/volume/file_ref.h"
#include "client/volume/volume_view.h"

namespace client {

// Prices a pin, or an unpin, of files whose extents are filled. `repinned` are the files that would
// be pinned again, `requests` the number of requests by mount path. Returns a record for each
// volume, in the order of the files.
std::vector<Record> DescribePrices(bool pin, const std::vector<FileRef>& files,
                                   const std::vector<FileRef>& repinned,
                                   const std::map<std::string, size_t>& requests);

// Returns why units beyond the `now` pinned ones do not fit into the volume's cache when it has
// `then` in all, in words; empty when they do, when there are none, or when the cache does not tell
// its size.
std::string WhyNotFitting(const VolumeView& view, uint64_t now, uint64_t then);

// What is said behind that where what does not fit is left out.
constexpr char kOvercommitRemedy[] = "; --overcommit pins it all the same";

// A volume of whose cache more would be pinned than it holds.
struct Overcommit {
    const Volume* volume;
    std::string why;  // in words, with the volume's name
};

// Returns the volumes into whose caches the files do not fit beside what is pinned there and what
// is queued to be, once the files that are `leaving` are unpinned. What is pinned already costs
// nothing, however much there is of it.
std::vector<Overcommit> FindOvercommits(const ConfigState& state, const std::vector<FileRef>& files,
                                        const std::vector<FileRef>& leaving = {});

}  // namespace client
