// SPDX-License-Identifier: MIT
#include "client/map/file_places.h"

#include <algorithm>
#include <set>

namespace client {

FilePlaces::FilePlaces(const std::vector<FilePlace>& files) {
    for (const FilePlace& file : files) {
        for (const UnitRun& run : file.units) {
            stretches_.push_back({run, paths_.size(), 0});
        }
        paths_.push_back(file.path);
    }
    std::stable_sort(stretches_.begin(), stretches_.end(), [](const auto& left, const auto& right) {
        return left.run.first < right.run.first;
    });
    uint64_t reach = 0;
    for (Stretch& stretch : stretches_) {
        reach = std::max(reach, stretch.run.last);
        stretch.reach = reach;
    }
}

std::vector<std::string> FilePlaces::Between(uint64_t first, uint64_t end) const {
    std::vector<std::string> found;
    std::set<size_t> seen;
    // Before the first stretch that reaches so far there is none.
    auto it = std::lower_bound(
        stretches_.begin(), stretches_.end(), first,
        [](const Stretch& stretch, uint64_t unit) { return stretch.reach < unit; });
    for (; it != stretches_.end() && it->run.first < end; ++it) {
        if (it->run.last >= first && seen.insert(it->file).second) {
            found.push_back(paths_[it->file]);
        }
    }
    return found;
}

}  // namespace client
