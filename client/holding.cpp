// SPDX-License-Identifier: MIT
#include "client/holding.h"

#include <algorithm>
#include <map>
#include <set>

#include "client/output.h"
#include "client/sharing.h"

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

// Units that have a bit.
UnitSet SetOf(const VolumeView& view, const UnitRuns& runs) {
    UnitSet set(view.bits.Bytes().size());
    set.Put(runs);
    return set;
}

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
    const UnitSet wanted = SetOf(group.view, runs);
    if (group.listed.count(file.inode) == 0) {
        return "is not on the service's list: its request was dropped, the service's log tells why";
    }
    const uint64_t missing = wanted.CountWithout(group.view.bits);
    if (missing > 0) {
        return Counted(missing, "unit") + " of " + std::to_string(wanted.Count()) + " not set";
    }
    if (group.view.residency.known && wanted.CountWithout(group.view.residency.pinned) > 0) {
        return "its units are set in the file and not in the driver's bitmap";
    }
    return "";
}

// Counts what was pinned and is not in the cache. What was never written is not read either.
void CountAbsent(const Group& group, Holding& holding) {
    const Residency& residency = group.view.residency;
    UnitRuns written;
    for (const FileRef& file : group.files) {
        const UnitRuns runs = RunsOf(WrittenOf(file.extents));
        written.insert(written.end(), runs.begin(), runs.end());
    }
    if (residency.known) {
        holding.absent = SetOf(group.view, written).CountWithout(residency.resident);
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
    UnitRuns all;
    holding.mountPath = group.volume->mountPath;
    for (const FileRef& file : group.files) {
        UnitRuns runs;
        const std::string why = WhyNotPinned(group, file, mapper, runs);
        if (!why.empty()) {
            holding.wrong.push_back({file.path, why});
        }
        all.insert(all.end(), runs.begin(), runs.end());
        holding.bytes += BytesOf(file.extents);
        ++holding.files;
    }
    CountUnitsOf(group.view, SetOf(group.view, all), holding);
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

Holding HoldingOfReleased(const Group& group, const UnitSet& needed) {
    Holding holding;
    UnitSet all(group.view.bits.Bytes().size());
    holding.mountPath = group.volume->mountPath;
    for (const FileRef& file : group.files) {
        const UnitSet units = SetOf(group.view, RunsOf(file.extents)).Without(needed);
        const uint64_t left = units.Count() - units.CountWithout(group.view.bits);
        if (group.listed.count(file.inode) != 0) {
            holding.wrong.push_back({file.path, "is still on the service's list"});
        } else if (left > 0) {
            holding.wrong.push_back({file.path, Counted(left, "unit") +
                                                    " still set: its request was dropped, the "
                                                    "service's log tells why"});
        }
        all.Put(units.Runs());
        holding.bytes += BytesOf(file.extents);
        ++holding.files;
    }
    CountUnitsOf(group.view, all, holding);
    return holding;
}

void PrintAbsent(const Holding& holding) {
    if (holding.absent > 0) {
        Print("  " + Toned(Tone::kBad, "not in the cache") + " " + Counted(holding.absent, "unit") +
              ": " + holding.whyAbsent);
    }
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

Json::Value HoldingToJson(const std::vector<Holding>& holdings) {
    Json::Value list(Json::arrayValue);
    for (const Holding& holding : holdings) {
        Json::Value item;
        item["volume"] = holding.mountPath;
        item["files"] = static_cast<Json::UInt64>(holding.files);
        item["bytes"] = static_cast<Json::UInt64>(holding.bytes);
        item["units"] = static_cast<Json::UInt64>(holding.wanted);
        item["unitsSet"] = static_cast<Json::UInt64>(holding.set);
        item["unitsWithDriver"] = Json::Value();
        item["unitsResident"] = Json::Value();
        item["unitsAbsent"] = Json::Value();
        if (holding.cacheTells) {
            item["unitsWithDriver"] = static_cast<Json::UInt64>(holding.driver);
            item["unitsResident"] = static_cast<Json::UInt64>(holding.resident);
            item["unitsAbsent"] = static_cast<Json::UInt64>(holding.absent);
        }
        item["wrong"] = RefusalsToJson(holding.wrong);
        list.append(item);
    }
    return list;
}

void PrintHolding(const std::vector<Holding>& holdings, bool pinned) {
    for (const Holding& holding : holdings) {
        const size_t good = holding.files - holding.wrong.size();
        const std::string head =
            (pinned ? "pinned " : "released ") + std::to_string(good) +
            (holding.wrong.empty() ? "" : " of " + std::to_string(holding.files)) +
            (holding.files == 1 ? " file, " : " files, ") + HumanBytes(holding.bytes);
        Print(Toned(Tone::kStrong, Printable(holding.mountPath)) + ": " +
              Toned(holding.wrong.empty() ? Tone::kGood : Tone::kBad, head));
        std::string units = "  units " + std::string(pinned ? "wanted " : "concerned ") +
                            std::to_string(holding.wanted) +
                            (pinned ? ", bits set " : ", still set ") + std::to_string(holding.set);
        if (holding.cacheTells) {
            units += ", with the driver " + std::to_string(holding.driver) + ", in the cache " +
                     std::to_string(holding.resident);
        }
        Print(units);
        PrintAbsent(holding);
        for (const Refusal& wrong : holding.wrong) {
            Print("  " + Toned(Tone::kBad, pinned ? "not pinned" : "not released") + " " +
                  Printable(wrong.path) + ": " + wrong.reason);
        }
    }
}

void PrintMendedHolding(const std::vector<Holding>& holdings) {
    for (const Holding& holding : holdings) {
        const size_t good = holding.files - holding.wrong.size();
        Print("  " + Counted(good, "pinned file", "pinned files") + " that shared units " +
              (good == 1 ? "is" : "are") + " whole again");
        PrintAbsent(holding);
        for (const Refusal& wrong : holding.wrong) {
            Print("  " + Toned(Tone::kBad, "no longer whole") + " " + Printable(wrong.path) + ": " +
                  wrong.reason);
        }
    }
}
