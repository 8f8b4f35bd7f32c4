// SPDX-License-Identifier: MIT
#include "client/pins/sharing.h"

#include <algorithm>
#include <map>
#include <set>

#include "client/volume/units.h"
#include "client/volume/volume_view.h"

namespace client {

namespace {

// The units of all files of the job on one volume.
UnitRuns UnitsOf(const FileJob& job, const Volume* volume) {
    std::vector<FileMappingEntry> extents;
    for (const FileRef& file : job.list.files) {
        if (file.volume == volume) {
            extents.insert(extents.end(), file.extents.begin(), file.extents.end());
        }
    }
    return RunsOf(extents);
}

// Plans for the files of `volume`, another mount path of the same device or the same, that lie in
// the units released. `seen`: inodes that leave its list or are mended already.
void PlanForMount(const ConfigState& state, const Volume* volume, const UnitRuns& released,
                  std::set<uint32_t>& seen, FileJob& job) {
    const auto consider = [&](const std::vector<StoredFile>& files) {
        for (const StoredFile& stored : files) {
            if (seen.count(stored.inode) > 0) {
                continue;
            }
            const PinnedNow now = LookAtStored(stored, *volume, job.volumes, job.mapper);
            if (now.state != PinnedState::kThere) {
                continue;
            }
            if (!CommonRuns(RunsOf(now.file.extents), released).empty()) {
                seen.insert(stored.inode);
                job.mended.push_back(now.file);
            }
        }
    };
    const auto pinned = state.pinned.find(volume->mountPath);
    if (pinned != state.pinned.end()) {
        consider(pinned->second);
    }
    consider(QueuedToPin(state, volume->mountPath));
}

}  // namespace

void PlanMending(const ConfigState& state, FileJob& job) {
    std::map<const Volume*, std::set<uint32_t>> leaving;
    for (const FileRef& file : job.list.files) {
        leaving[file.volume].insert(file.inode);
    }
    // Another mount path of the device has a list of its own, of which the requests take nothing.
    std::map<const Volume*, std::set<uint32_t>> seen = leaving;
    for (const auto& [volume, inodes] : leaving) {
        const UnitRuns released = UnitsOf(job, volume);
        for (const Volume* const mount : MountsOf(*volume, job.volumes)) {
            PlanForMount(state, mount, released, seen[mount], job);
        }
    }
    job.mending = PackFiles(kRequestPinFiles, job.mended);
}

}  // namespace client
