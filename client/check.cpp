// SPDX-License-Identifier: MIT
#include "client/check.h"

#include <sys/stat.h>

#include <algorithm>
#include <set>

namespace {

FileCondition ConditionOf(const PinnedNow& now, const Volume& volume) {
    struct stat status = {};
    const std::string path = PathInRequest(volume.mountPath, now.stored.relative);
    if (lstat(path.c_str(), &status) != 0) {
        return FileCondition::kGone;
    }
    if (!S_ISREG(status.st_mode) || static_cast<uint32_t>(status.st_ino) != now.stored.inode) {
        return FileCondition::kReplaced;
    }
    return now.why.empty() ? FileCondition::kGood : FileCondition::kUnmappable;
}

void CheckFile(const PinnedNow& now, const Volume& volume, VolumeCheck& check) {
    FileCheck file = {now, ConditionOf(now, volume), 0, 0};
    if (file.condition == FileCondition::kGood) {
        const UnitRuns runs = RunsOf(now.file.extents);
        UnitSet units(check.view.bits.Bytes().size());
        units.Put(runs);
        file.units = CountUnits(runs);
        file.missing = units.CountWithout(check.view.bits);
        check.withoutBit += file.units - units.Count();
        check.wanted.Put(runs);
        if (file.missing > 0) {
            file.condition = FileCondition::kMissingBits;
        }
    }
    check.files.push_back(file);
}

void CompareBitmaps(const ConfigState& state, Mapper& mapper, VolumeCheck& check) {
    check.missing = check.wanted.CountWithout(check.view.bits);
    // An interrupted pin has set its bits and is not on the list yet.
    for (const StoredFile& stored : QueuedToPin(state, check.mountPath)) {
        std::vector<FileMappingEntry> extents;
        mapper.Map(check.mountPath, stored.relative, stored.inode, extents);
        check.wanted.Put(RunsOf(extents));
    }
    check.surplus = check.view.bits.Without(check.wanted);
    if (check.view.residency.known) {
        check.driverLacks = check.view.bits.CountWithout(check.view.residency.pinned);
        check.driverSurplus = check.view.residency.pinned.CountWithout(check.view.bits);
    }
    check.fileTooLong =
        check.view.deviceSize > 0 && check.view.fileBytes > check.view.bits.Bytes().size();
}

VolumeCheck CheckVolume(const ConfigState& state, const Volume& volume,
                        const std::vector<Volume>& volumes, Mapper& mapper) {
    VolumeCheck check;
    check.mountPath = volume.mountPath;
    check.mounted = true;
    check.view = LookAt(volume);
    check.wanted = UnitSet(check.view.bits.Bytes().size());
    check.queued = static_cast<size_t>(std::count_if(
        state.queue.begin(), state.queue.end(),
        [&](const StoredRequest& request) { return request.mountPath == volume.mountPath; }));
    for (const PinnedNow& now : LookAtPinned(state, volume, volumes, mapper)) {
        CheckFile(now, volume, check);
    }
    CompareBitmaps(state, mapper, check);
    return check;
}

}  // namespace

std::vector<VolumeCheck> CheckVolumes(const ConfigState& state, const std::vector<Volume>& volumes,
                                      const std::string& mountPath) {
    std::vector<VolumeCheck> checks;
    std::set<std::string> done;
    Mapper mapper;
    for (const Volume& volume : volumes) {
        if ((!mountPath.empty() && volume.mountPath != mountPath) ||
            !done.insert(volume.mountPath).second) {
            continue;
        }
        VolumeCheck check = CheckVolume(state, volume, volumes, mapper);
        if (!mountPath.empty() || !check.files.empty() || check.view.bits.Count() > 0) {
            checks.push_back(std::move(check));
        }
    }
    for (const auto& [pinned, files] : state.pinned) {
        if ((mountPath.empty() || mountPath == pinned) && done.count(pinned) == 0) {
            checks.emplace_back();
            checks.back().mountPath = pinned;
        }
    }
    return checks;
}

bool IsClean(const VolumeCheck& check) {
    const bool files =
        std::all_of(check.files.begin(), check.files.end(),
                    [](const FileCheck& file) { return file.condition == FileCondition::kGood; });
    return check.mounted && files && check.surplus.Count() == 0 && check.driverLacks == 0 &&
           check.driverSurplus == 0 && !check.fileTooLong;
}

const char* ConditionName(FileCondition condition) {
    switch (condition) {
        case FileCondition::kGood:
            return "good";
        case FileCondition::kMissingBits:
            return "missing bits";
        case FileCondition::kGone:
            return "gone";
        case FileCondition::kReplaced:
            return "replaced";
        case FileCondition::kUnmappable:
            return "unmappable";
    }
    return "";
}
