// SPDX-License-Identifier: MIT
#include "client/pins/check.h"

#include <algorithm>
#include <set>

#include "client/show/output.h"

namespace client {

namespace {

FileCondition ConditionOf(const PinnedNow& now) {
    switch (now.state) {
        case PinnedState::kThere:
            return FileCondition::kGood;
        case PinnedState::kGone:
            return FileCondition::kGone;
        case PinnedState::kReplaced:
            return FileCondition::kReplaced;
        case PinnedState::kOtherName:
            return FileCondition::kOtherName;
        default:
            return FileCondition::kUnmappable;
    }
}

// Takes the units of a file that is pinned by any mount path of the device.
void Want(const PinnedNow& now, VolumeCheck& check) {
    if (now.state == PinnedState::kUntold && check.uncertain.empty()) {
        check.uncertain = "no unit is cleared while it cannot be told where " +
                          Printable(now.stored.relative) + " lies";
    }
    check.wanted.Put(RunsOf(now.file.extents));
}

void CheckFile(const PinnedNow& now, VolumeCheck& check) {
    FileCheck file = {now, ConditionOf(now), 0, 0};
    const UnitRuns runs = RunsOf(now.file.extents);
    const uint64_t withBit = check.view.bits.RoomFor(runs);
    file.units = CountUnits(runs);
    file.missing = withBit - check.view.bits.CountIn(runs);
    check.withoutBit += file.units - withBit;
    if (file.condition == FileCondition::kGood && file.missing > 0) {
        file.condition = FileCondition::kMissingBits;
    }
    Want(now, check);
    check.files.push_back(file);
}

// Looks at what is listed under a mount path where no volume is now: the device may have been
// mounted there before, and its units are then still pinned.
void WantFormerMount(const std::vector<StoredFile>& files, const Volume& volume,
                     const std::vector<Volume>& volumes, Mapper& mapper, VolumeCheck& check) {
    for (const StoredFile& stored : files) {
        const PinnedNow now = LookAtStored(stored, volume, volumes, mapper);
        if (now.state == PinnedState::kThere || now.state == PinnedState::kOtherName) {
            Want(now, check);
        }
    }
}

bool IsListed(const std::string& mountPath, const std::vector<Volume>& volumes) {
    return std::any_of(volumes.begin(), volumes.end(), [&mountPath](const Volume& volume) {
        return volume.mountPath == mountPath;
    });
}

// Takes what is pinned, or queued to be, by the other mount paths, and what is queued at all: an
// interrupted pin has set its bits and is not on the list yet.
void WantOthers(const ConfigState& state, const Volume& volume, const std::vector<Volume>& volumes,
                Mapper& mapper, VolumeCheck& check) {
    for (const Volume* const mount : MountsOf(volume, volumes)) {
        check.mountPaths.push_back(mount->mountPath);
        if (mount->mountPath != volume.mountPath) {
            for (const PinnedNow& now : LookAtPinned(state, *mount, volumes, mapper)) {
                Want(now, check);
            }
        }
        for (const StoredFile& stored : QueuedToPin(state, mount->mountPath)) {
            std::vector<FileMappingEntry> extents;
            mapper.Map(mount->mountPath, stored.relative, stored.inode, extents);
            check.wanted.Put(RunsOf(extents));
        }
    }
    for (const auto& [mountPath, files] : state.pinned) {
        if (!IsListed(mountPath, volumes)) {
            WantFormerMount(files, volume, volumes, mapper, check);
        }
    }
    check.queued = static_cast<size_t>(std::count_if(
        state.queue.begin(), state.queue.end(), [&check](const StoredRequest& request) {
            return std::count(check.mountPaths.begin(), check.mountPaths.end(), request.mountPath) >
                   0;
        }));
}

// Compares the bitmap as a whole with what is wanted of it and with the driver's.
void CompareBitmaps(VolumeCheck& check) {
    check.surplus = check.view.bits.Without(check.wanted);
    if (check.view.residency.known) {
        check.driverLacks = check.view.bits.CountWithout(check.view.residency.pinned);
        check.driverSurplus = check.view.residency.pinned.CountWithout(check.view.bits);
    }
    check.fileTooLong =
        check.view.deviceSize > 0 && check.view.fileBytes > check.view.bits.Bytes().size();
}

VolumeCheck CheckVolume(const ConfigState& state, const Volume& volume,
                        const std::vector<Volume>& volumes, const std::string& bitmapWith,
                        Mapper& mapper) {
    VolumeCheck check;
    check.mountPath = volume.mountPath;
    check.mounted = true;
    check.bitmapWith = bitmapWith;
    check.view = LookAt(volume);
    check.wanted = UnitSet(check.view.bits.Bytes().size());
    for (const PinnedNow& now : LookAtPinned(state, volume, volumes, mapper)) {
        CheckFile(now, check);
    }
    check.missing = check.wanted.CountWithout(check.view.bits);
    WantOthers(state, volume, volumes, mapper, check);
    if (bitmapWith.empty()) {
        CompareBitmaps(check);
    }
    return check;
}

// The mount path at which a bitmap is checked that shows at several: the first by which anything is
// pinned, else the first. Empty when it is this one.
std::string BitmapWith(const ConfigState& state, const Volume& volume,
                       const std::vector<Volume>& volumes) {
    std::string first;
    const std::string own = BitmapPathOf(volume);
    for (const Volume* const mount : MountsOf(volume, volumes)) {
        const bool same =
            mount->mountPath == volume.mountPath || AreOneFile(own, BitmapPathOf(*mount));
        if (same && state.pinned.count(mount->mountPath) > 0) {
            first = mount->mountPath;
            break;
        }
        first = same && first.empty() ? mount->mountPath : first;
    }
    return first == volume.mountPath ? "" : first;
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
        const std::string with =
            mountPath.empty() ? BitmapWith(state, volume, volumes) : std::string();
        if (!with.empty() && state.pinned.count(volume.mountPath) == 0) {
            continue;
        }
        VolumeCheck check = CheckVolume(state, volume, volumes, with, mapper);
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
        std::all_of(check.files.begin(), check.files.end(), [](const FileCheck& file) {
            return file.condition == FileCondition::kGood ||
                   (file.condition == FileCondition::kOtherName && file.missing == 0);
        });
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
        case FileCondition::kOtherName:
            return "under another name";
        case FileCondition::kUnmappable:
            return "unmappable";
    }
    return "";
}

}  // namespace client
