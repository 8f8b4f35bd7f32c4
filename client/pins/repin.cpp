// SPDX-License-Identifier: MIT
#include "client/pins/repin.h"

#include <set>
#include <utility>

namespace client {

namespace {

using PinId = std::pair<std::string, uint32_t>;  // mount path, inode

// Takes those of the files that stay and lie in the units released.
void TakeSharing(const std::vector<PinnedFile>& pinned, const UnitRuns& released,
                 std::set<PinId>& seen, std::vector<FileRef>& files) {
    for (const PinnedFile& file : pinned) {
        // A request can only name a file by the path that it has now.
        if (file.fate == Fate::kThere && !CommonRuns(file.units, released).empty() &&
            seen.insert({file.mountPath, file.entry.inode}).second) {
            files.push_back(file.file);
        }
    }
}

}  // namespace

std::vector<FileRef> FilesToRepin(const std::vector<DeviceState>& devices,
                                  const std::vector<FileRef>& leaving) {
    std::vector<FileRef> files;
    for (const DeviceState& device : devices) {
        std::vector<FileMappingEntry> extents;
        // Only the mount path that a request names loses the entry; the device's others keep
        // theirs.
        std::set<PinId> seen;
        for (const FileRef& file : leaving) {
            if (IsMountOf(device, file.volume->mountPath)) {
                extents.insert(extents.end(), file.extents.begin(), file.extents.end());
                seen.insert({file.volume->mountPath, file.inode});
            }
        }
        const UnitRuns released = RunsOf(extents);
        TakeSharing(device.listed, released, seen, files);
        TakeSharing(device.queued, released, seen, files);
    }
    return files;
}

}  // namespace client
