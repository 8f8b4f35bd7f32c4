// SPDX-License-Identifier: MIT
#include "client/volume/file_ref.h"

#include <algorithm>

namespace client {

std::vector<VolumeFiles> GroupByVolume(const std::vector<FileRef>& files) {
    std::vector<VolumeFiles> groups;
    for (const FileRef& file : files) {
        auto group = std::find_if(groups.begin(), groups.end(), [&file](const VolumeFiles& known) {
            return known.volume == file.volume;
        });
        if (group == groups.end()) {
            group = groups.insert(groups.end(), {file.volume, {}});
        }
        group->files.push_back(file);
    }
    return groups;
}

std::vector<FileMappingEntry> ExtentsOf(const std::vector<FileRef>& files) {
    std::vector<FileMappingEntry> extents;
    for (const FileRef& file : files) {
        extents.insert(extents.end(), file.extents.begin(), file.extents.end());
    }
    return extents;
}

}  // namespace client
