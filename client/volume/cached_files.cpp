// SPDX-License-Identifier: MIT
#include "client/volume/cached_files.h"

#include <algorithm>

#include "client/show/poll.h"
#include "client/volume/directory_walk.h"
#include "client/volume/file_ref.h"

namespace client {

CachedFiles FindCachedFiles(const Volume& volume, const UnitSet& set, double seconds) {
    CachedFiles found;
    found.units = UnitSet(set.Bytes().size());
    Mapper mapper;
    const double end = MonotonicSeconds() + seconds;
    WalkBelow(volume.mountPath, [&](const WalkEntry& entry) {
        // What has no blocks is in no cache.
        if (entry.error == 0 && (!S_ISREG(entry.status.st_mode) || entry.status.st_blocks == 0)) {
            return;
        }
        FileRef file = {&volume,
                        entry.path,
                        PathBelow(volume.mountPath, entry.path),
                        static_cast<uint32_t>(entry.status.st_ino),
                        static_cast<uint64_t>(entry.status.st_size),
                        {}};
        if (entry.error != 0 || MonotonicSeconds() > end ||
            mapper.Map(file) == MapOutcome::kFailed) {
            ++found.passedOver;
            return;
        }
        const UnitRuns units = RunsOf(file.extents);
        const uint64_t count = set.CountIn(units);
        if (count > 0) {
            found.units.Put(units);
            found.files.push_back({entry.path, file.size, units, count});
        }
    });
    std::stable_sort(
        found.files.begin(), found.files.end(),
        [](const CachedFile& left, const CachedFile& right) { return left.count > right.count; });
    return found;
}

}  // namespace client
