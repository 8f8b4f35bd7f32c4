// SPDX-License-Identifier: MIT
#include "client/sharing.h"

#include <algorithm>
#include <map>
#include <set>

#include "client/output.h"
#include "client/units.h"

namespace {

// Resolves a stored file to what lies at its path now.
PinnedNow LookAtStored(const StoredFile& stored, const Volume& volume,
                       const std::vector<Volume>& volumes, Mapper& mapper) {
    PinnedNow now = {stored, {}, ""};
    const std::string path = PathInRequest(volume.mountPath, stored.relative);
    if (!ExamineFile(path, volumes, now.file, now.why)) {
        return now;
    }
    if (now.file.volume->mountPath != volume.mountPath) {
        now.why = "now lies on volume " + Printable(now.file.volume->mountPath);
    } else if (now.file.inode != stored.inode) {
        now.why = "replaced: inode " + std::to_string(stored.inode) + " was pinned, inode " +
                  std::to_string(now.file.inode) + " is there now";
    } else if (mapper.MapFresh(volume.mountPath, now.file.relative, now.file.inode,
                               now.file.extents) == MapOutcome::kFailed) {
        now.why = "its extents cannot be told";
    }
    return now;
}

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

void PlanForVolume(const ConfigState& state, const Volume* volume,
                   const std::set<uint32_t>& leaving, FileJob& job) {
    const UnitRuns released = UnitsOf(job, volume);
    std::set<uint32_t> seen = leaving;
    const auto consider = [&](const std::vector<StoredFile>& files) {
        for (const StoredFile& stored : files) {
            if (seen.count(stored.inode) > 0) {
                continue;
            }
            const PinnedNow now = LookAtStored(stored, *volume, job.volumes, job.mapper);
            if (!now.why.empty()) {
                continue;
            }
            seen.insert(stored.inode);
            if (!CommonRuns(RunsOf(now.file.extents), released).empty()) {
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

std::vector<PinnedNow> LookAtPinned(const ConfigState& state, const Volume& volume,
                                    const std::vector<Volume>& volumes, Mapper& mapper) {
    std::vector<PinnedNow> all;
    const auto pinned = state.pinned.find(volume.mountPath);
    if (pinned != state.pinned.end()) {
        for (const StoredFile& stored : pinned->second) {
            all.push_back(LookAtStored(stored, volume, volumes, mapper));
        }
    }
    return all;
}

std::vector<StoredFile> QueuedToPin(const ConfigState& state, const std::string& mountPath) {
    std::vector<StoredFile> files;
    for (const StoredRequest& request : state.queue) {
        if (request.mountPath != mountPath) {
            continue;
        }
        for (const StoredFile& file : ParseStoredFiles(request.data)) {
            const auto same = [&file](const StoredFile& other) {
                return other.inode == file.inode;
            };
            files.erase(std::remove_if(files.begin(), files.end(), same), files.end());
            if (request.type == "pinFiles") {
                files.push_back(file);
            }
        }
    }
    return files;
}

void PlanMending(const ConfigState& state, FileJob& job) {
    std::map<const Volume*, std::set<uint32_t>> leaving;
    for (const FileRef& file : job.list.files) {
        leaving[file.volume].insert(file.inode);
    }
    for (const auto& [volume, inodes] : leaving) {
        PlanForVolume(state, volume, inodes, job);
    }
    job.mending = PackFiles(kRequestPinFiles, job.mended);
}
