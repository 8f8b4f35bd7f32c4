// SPDX-License-Identifier: MIT
#include "client/pins/holding.h"

#include <algorithm>
#include <map>
#include <set>

#include "client/pins/sharing.h"
#include "client/show/output.h"

namespace client {

namespace {

// The files of one volume, with what is known of the volume.
struct Group {
    const Volume* volume;
    VolumeView view;
    std::set<uint32_t> listed;  // inodes
    std::vector<FileRef> files;
};

std::vector<Group> GroupByVolume(const ConfigState& state, const std::vector<FileRef>& files) {
    std::vector<Group> groups;
    for (const FileRef& file : files) {
        auto group = std::find_if(groups.begin(), groups.end(), [&file](const Group& known) {
            return known.volume == file.volume;
        });
        if (group == groups.end()) {
            groups.push_back({file.volume, LookAt(*file.volume), {}, {}});
            group = groups.end() - 1;
            const auto pinned = state.pinned.find(file.volume->mountPath);
            if (pinned != state.pinned.end()) {
                for (const StoredFile& stored : pinned->second) {
                    group->listed.insert(stored.inode);
                }
            }
        }
        group->files.push_back(file);
    }
    return groups;
}

// Counts the wanted units, which must be those that have a bit, in the bitmaps.
void CountUnitsOf(const VolumeView& view, const UnitSet& wanted, Holding& holding) {
    holding.wanted = wanted.Count();
    holding.set = holding.wanted - wanted.CountWithout(view.bits);
    holding.cacheTells = view.residency.known;
    if (holding.cacheTells) {
        holding.driver = holding.wanted - wanted.CountWithout(view.residency.pinned);
        holding.resident = holding.wanted - wanted.CountWithout(view.residency.resident);
    }
}

// Why a pin of the file does not hold, empty when it does. `runs` receives its units of now.
std::string WhyNotPinned(const Group& group, const FileRef& file, Mapper& mapper, UnitRuns& runs) {
    std::vector<FileMappingEntry> extents;
    if (mapper.Map(group.volume->mountPath, file.relative, file.inode, extents) !=
        MapOutcome::kMapped) {
        return "is no longer there, or has no place on the device any more";
    }
    runs = RunsOf(extents);
    const UnitSet& bits = group.view.bits;
    const uint64_t wanted = bits.RoomFor(runs);
    if (group.listed.count(file.inode) == 0) {
        return "is not on the service's list: its request was dropped, the service's log tells why";
    }
    const uint64_t missing = wanted - bits.CountIn(runs);
    if (missing > 0) {
        return Counted(missing, "unit") + " of " + std::to_string(wanted) + " not set";
    }
    if (group.view.residency.known && group.view.residency.pinned.CountIn(runs) < wanted) {
        return "its units are set in the file and not in the driver's bitmap";
    }
    return "";
}

// Counts what was pinned and is not in the cache. What was never written is not read either.
void CountAbsent(const Group& group, Holding& holding) {
    const Residency& residency = group.view.residency;
    if (residency.known) {
        UnitSet written(group.view.bits.Bytes().size());
        for (const FileRef& file : group.files) {
            written.Put(RunsOf(WrittenOf(file.extents)));
        }
        holding.absent = written.CountWithout(residency.resident);
    }
    if (holding.absent > 0) {
        const uint64_t pinned = group.view.bits.Count() * kUnitBytes;
        holding.whyAbsent =
            pinned > residency.cacheSize
                ? HumanBytes(pinned) + " are pinned, the cache holds " +
                      HumanBytes(residency.cacheSize)
                : "the reading was interrupted or failed, the service's log tells why; reload "
                  "reads again";
    }
}

Holding HoldingOfPinned(const Group& group, Mapper& mapper) {
    Holding holding;
    UnitSet all(group.view.bits.Bytes().size());
    holding.mountPath = group.volume->mountPath;
    for (const FileRef& file : group.files) {
        UnitRuns runs;
        const std::string why = WhyNotPinned(group, file, mapper, runs);
        if (!why.empty()) {
            holding.wrong.push_back({file.path, why});
        }
        all.Put(runs);
        holding.bytes += BytesOf(file.extents);
        ++holding.files;
    }
    CountUnitsOf(group.view, all, holding);
    CountAbsent(group, holding);
    return holding;
}

// The units that files which stay pinned, or are queued to be, need.
UnitSet NeededBy(const ConfigState& state, const Group& group, const std::vector<Volume>& volumes,
                 Mapper& mapper) {
    UnitSet needed(group.view.bits.Bytes().size());
    for (const Volume* const mount : MountsOf(*group.volume, volumes)) {
        for (const PinnedNow& now : LookAtPinned(state, *mount, volumes, mapper)) {
            needed.Put(RunsOf(now.file.extents));
        }
        for (const StoredFile& stored : QueuedToPin(state, mount->mountPath)) {
            std::vector<FileMappingEntry> extents;
            mapper.Map(mount->mountPath, stored.relative, stored.inode, extents);
            needed.Put(RunsOf(extents));
        }
    }
    return needed;
}

// Why an unpin of the file does not hold, empty when it does. The sets are what the bitmap
// file and the driver's bitmap hold that no pinned file needs: none of its units may be in them.
std::string WhyNotReleased(const Group& group, const FileRef& file, const UnitRuns& runs,
                           const UnitSet& bitsLeft, const UnitSet& driverLeft) {
    const uint64_t left = bitsLeft.CountIn(runs);
    const uint64_t withDriver = driverLeft.CountIn(runs);
    if (group.listed.count(file.inode) != 0) {
        return "is still on the service's list";
    }
    if (left > 0) {
        return Counted(left, "unit") +
               " still set: its request was dropped, the service's log tells why";
    }
    if (withDriver > 0) {
        return Counted(withDriver, "unit") +
               " still with the driver: its request was dropped before the driver took it, the "
               "service's log tells why; check --repair hands the bitmap over";
    }
    return "";
}

Holding HoldingOfReleased(const Group& group, const UnitSet& needed) {
    const UnitSet bitsLeft = group.view.bits.Without(needed);
    const UnitSet driverLeft = group.view.residency.pinned.Without(needed);
    Holding holding;
    UnitSet all(group.view.bits.Bytes().size());
    holding.mountPath = group.volume->mountPath;
    for (const FileRef& file : group.files) {
        const UnitRuns runs = RunsOf(file.extents);
        const std::string why = WhyNotReleased(group, file, runs, bitsLeft, driverLeft);
        if (!why.empty()) {
            holding.wrong.push_back({file.path, why});
        }
        all.Put(runs);
        holding.bytes += BytesOf(file.extents);
        ++holding.files;
    }
    CountUnitsOf(group.view, all.Without(needed), holding);
    return holding;
}

}  // namespace

std::vector<Holding> HoldingAfterPin(const ConfigState& state, const std::vector<FileRef>& files,
                                     Mapper& mapper) {
    std::vector<Holding> holdings;
    for (const Group& group : GroupByVolume(state, files)) {
        holdings.push_back(HoldingOfPinned(group, mapper));
    }
    return holdings;
}

std::vector<Holding> HoldingAfterUnpin(const ConfigState& state, const std::vector<FileRef>& files,
                                       const std::vector<Volume>& volumes, Mapper& mapper) {
    std::vector<Holding> holdings;
    for (const Group& group : GroupByVolume(state, files)) {
        holdings.push_back(HoldingOfReleased(group, NeededBy(state, group, volumes, mapper)));
    }
    return holdings;
}

bool AllHold(const std::vector<Holding>& holdings) {
    return std::all_of(holdings.begin(), holdings.end(), [](const Holding& holding) {
        return holding.wrong.empty() && holding.absent == 0;
    });
}

}  // namespace client
