// SPDX-License-Identifier: MIT
#include "client/pins/holding.h"

#include <algorithm>
#include <map>
#include <set>

#include "client/show/output.h"

namespace client {

namespace {

// The listed ones of the group's files, by inode, as they lie now. Only these are mapped: reading
// the whole device after a small pin would map every listed file.
std::map<uint32_t, PinnedFile> ListedOf(const ConfigState& state, const VolumeFiles& group) {
    std::set<uint32_t> inodes;
    std::vector<StoredFile> entries;
    std::map<uint32_t, PinnedFile> listed;
    Mapper mapper;
    for (const FileRef& file : group.files) {
        inodes.insert(file.inode);
    }
    const auto pinned = state.pinned.find(group.volume->mountPath);
    if (pinned != state.pinned.end()) {
        std::copy_if(pinned->second.begin(), pinned->second.end(), std::back_inserter(entries),
                     [&](const StoredFile& entry) { return inodes.count(entry.inode) > 0; });
    }
    for (PinnedFile& file : InspectEntries(entries, *group.volume)) {
        MapPinned(file, mapper);
        listed[file.entry.inode] = std::move(file);
    }
    return listed;
}

// Why a pin of the file does not hold, empty when it does.
std::string WhyNotPinned(const VolumeView& view, const PinnedFile* pinned) {
    if (pinned == nullptr) {
        return "is not on the service's list: its request was dropped, the service's log says why";
    }
    // Its entry is there and its file is not: nothing can be said of its units.
    if (!IsFound(*pinned)) {
        return std::string(FateName(pinned->fate)) + ": " + pinned->why;
    }
    // What lies in the device's tail has no bit, and is not missing.
    const uint64_t wanted = view.bits.RoomFor(pinned->units);
    const uint64_t missing = wanted - view.bits.CountIn(pinned->units);
    if (missing > 0) {
        return Counted(missing, "unit") + " of " + std::to_string(wanted) + " not set";
    }
    if (view.residency.known && view.residency.pinned.CountIn(pinned->units) < wanted) {
        return "its units are set in the file and not in the driver's bitmap";
    }
    return "";
}

// Counts what was pinned and is not in the cache. What was never written is not read either.
void CountAbsent(const VolumeView& view, const UnitSet& written, Holding& holding) {
    const Residency& residency = view.residency;
    if (!residency.known) {
        return;
    }
    holding.absent = written.CountWithout(residency.resident);
    if (holding.absent > 0) {
        // With more pinned than it holds, a cache reads what it can and drops the rest.
        const uint64_t pinned = view.bits.Count();
        holding.whyAbsent = IsMoreThanCache(residency, pinned)
                                ? HumanBytes(pinned * kUnitBytes) +
                                      " are pinned, the cache holds " +
                                      HumanBytes(residency.cacheSize)
                                : "the reading was interrupted or failed, the service's log says "
                                  "why; reload reads again";
    }
}

Holding HoldingOfPinned(const ConfigState& state, const VolumeFiles& group) {
    const VolumeView view = LookAt(*group.volume);
    const std::map<uint32_t, PinnedFile> listed = ListedOf(state, group);
    UnitSet all(view.bits.Bytes().size());
    UnitSet written = all;
    Holding holding;
    holding.volume = group.volume->mountPath;
    holding.files = group.files.size();
    for (const FileRef& file : group.files) {
        // Judged by what lies there now: the file may have grown since its request was sent.
        const auto found = listed.find(file.inode);
        const PinnedFile* const pinned = found == listed.end() ? nullptr : &found->second;
        const std::string why = WhyNotPinned(view, pinned);
        if (!why.empty()) {
            holding.wrong.push_back({file.path, why});
        }
        if (pinned != nullptr) {
            all.Put(pinned->units);
            // Preallocated blocks get bits and are never read, so they need not be in the cache.
            written.Put(RunsOf(WrittenOf(pinned->file.extents)));
            holding.bytes += BytesOf(pinned->file.extents);
        }
    }
    holding.counts = CountUnits(view, all);
    CountAbsent(view, written, holding);
    return holding;
}

// Why an unpin of the file does not hold, empty when it does. None of its units may be among those
// that file and driver hold for nothing.
std::string WhyNotUnpinned(const DeviceState& device, const UnitSet& driverSurplus,
                           const FileRef& file) {
    const UnitRuns units = RunsOf(file.extents);
    const uint64_t left = device.surplus.CountIn(units);
    const uint64_t withDriver = driverSurplus.CountIn(units);
    // By this mount path: another one may keep an entry of the same file.
    if (FindListed(device, file.volume->mountPath, file.inode) != nullptr) {
        return "is still on the service's list";
    }
    if (left > 0) {
        return Counted(left, "unit") +
               " still set: its request was dropped, the service's log says why";
    }
    if (withDriver > 0) {
        return Counted(withDriver, "unit") +
               " still with the driver: its request was dropped before the driver took it, the "
               "service's log says why; check --repair hands the bitmap over";
    }
    return "";
}

Holding HoldingOfUnpinned(const DeviceState& device, const VolumeFiles& group) {
    // Against what is needed, not against the file: a request that was dropped half-way may have
    // cleared the one and not the other.
    const UnitSet driverSurplus = device.view.residency.pinned.Without(device.needed);
    UnitSet all(device.view.bits.Bytes().size());
    Holding holding;
    holding.volume = group.volume->mountPath;
    holding.files = group.files.size();
    for (const FileRef& file : group.files) {
        const std::string why = WhyNotUnpinned(device, driverSurplus, file);
        if (!why.empty()) {
            holding.wrong.push_back({file.path, why});
        }
        all.Put(RunsOf(file.extents));
        holding.bytes += BytesOf(file.extents);
    }
    // Units that another file needs rightly stay set, and say nothing of this unpin.
    holding.counts = CountUnits(device.view, all.Without(device.needed));
    return holding;
}

}  // namespace

std::vector<Holding> HoldingAfterPin(const ConfigState& state, const std::vector<FileRef>& files) {
    std::vector<Holding> holdings;
    for (const VolumeFiles& group : GroupByVolume(files)) {
        holdings.push_back(HoldingOfPinned(state, group));
    }
    return holdings;
}

std::vector<Holding> HoldingAfterUnpin(const ConfigState& state, const std::vector<FileRef>& files,
                                       const std::vector<Volume>& volumes) {
    std::vector<Holding> holdings;
    for (const VolumeFiles& group : GroupByVolume(files)) {
        holdings.push_back(HoldingOfUnpinned(ReadDevice(state, *group.volume, volumes), group));
    }
    return holdings;
}

bool AllHold(const std::vector<Holding>& holdings) {
    return std::all_of(holdings.begin(), holdings.end(), [](const Holding& holding) {
        // Pinned and not in the cache is only half of what was asked.
        return holding.wrong.empty() && holding.absent == 0;
    });
}

Record DescribeHolding(const Holding& holding, const std::string& done) {
    const bool good = holding.wrong.empty();
    const size_t right = holding.files - holding.wrong.size();
    const std::string count = good
                                  ? Counted(right, "file")
                                  : std::to_string(right) + " of " + Counted(holding.files, "file");
    Record record;
    record.Headline(Toned(Tone::kStrong, Printable(holding.volume)) + ": " +
                    Toned(good ? Tone::kGood : Tone::kBad,
                          done + " " + count + ", " + HumanBytes(holding.bytes)));
    record.Add("volume", holding.volume).Add("files", holding.files).Add("bytes", holding.bytes);
    AddCounts(holding.counts, record);
    record.Add("unitsAbsent", IfKnown(holding.counts.cacheTells, holding.absent));
    if (holding.absent > 0) {
        record.Line(Toned(Tone::kBad, "not in the cache") + " " + Counted(holding.absent, "unit") +
                    ": " + holding.whyAbsent);
    }
    for (const Unmet& unmet : holding.wrong) {
        record.Line(Toned(Tone::kBad, "not " + done) + " " + Printable(unmet.path) + ": " +
                    unmet.reason);
    }
    return record.List("wrong", RecordsOf(holding.wrong, [](const Unmet& unmet) {
                           return Record().Add("path", unmet.path).Add("reason", unmet.reason);
                       }));
}

}  // namespace client
