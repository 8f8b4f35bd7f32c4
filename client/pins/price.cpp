// SPDX-License-Identifier: MIT
#include "client/pins/price.h"

#include <stdio.h>

#include <algorithm>
#include <iterator>

#include "client/pins/pinned_file.h"
#include "client/show/output.h"
#include "client/volume/volume_view.h"

namespace client {

namespace {

std::vector<FileRef> FilesOn(const Volume& volume, const std::vector<FileRef>& files) {
    std::vector<FileRef> found;
    // By the volume's address: two mount paths of one device are two.
    std::copy_if(files.begin(), files.end(), std::back_inserter(found),
                 [&volume](const FileRef& file) { return file.volume == &volume; });
    return found;
}

// Returns the volume's bits as they would be afterwards.
UnitSet BitsThen(const UnitSet& now, bool pin, const UnitSet& own,
                 const std::vector<FileRef>& repinned) {
    // In this order, as the service does it: the unpin clears a shared unit, the repin sets it.
    UnitSet then = pin ? now : now.Without(own);
    then.Put(pin ? own.Runs() : RunsOf(ExtentsOf(repinned)));
    return then;
}

std::string Share(uint64_t bytes, uint64_t cacheSize) {
    char text[32];
    snprintf(text, sizeof(text), "%.1f %%",
             100.0 * static_cast<double>(bytes) / static_cast<double>(cacheSize));
    return text;
}

// `now` and `then` are the bytes that are pinned on the volume.
std::string CacheText(uint64_t cacheSize, uint64_t now, uint64_t then) {
    if (cacheSize == 0) {
        return "its size is not known here; pinned now " + HumanBytes(now) + ", afterwards " +
               HumanBytes(then);
    }
    return HumanBytes(cacheSize) + "; pinned now " + Share(now, cacheSize) + ", afterwards " +
           Share(then, cacheSize) +
           (then > cacheSize ? Toned(Tone::kBad, "  more than the cache holds") : "");
}

Record DescribePriceOn(const Volume& volume, bool pin, const std::vector<FileRef>& files,
                       const std::vector<FileRef>& repinned) {
    const VolumeView view = LookAt(volume);
    const std::vector<FileMappingEntry> extents = ExtentsOf(files);
    const UnitRuns runs = RunsOf(extents);
    UnitSet own(view.bits.Bytes().size());
    own.Put(runs);
    const uint64_t bytes = BytesOf(extents);
    const uint64_t units = CountUnits(runs);
    // Small files that share a unit have more bytes than their units.
    const uint64_t rounding = std::max(units * kUnitBytes, bytes) - bytes;
    const uint64_t already = view.bits.CountIn(runs);
    // Units in the device's tail have no bit and cannot be pinned.
    const uint64_t withoutBit = units - own.Count();
    const uint64_t now = view.bits.Count();
    const uint64_t then = BitsThen(view.bits, pin, own, repinned).Count();
    const uint64_t cacheSize = view.residency.cacheSize;
    Record record;
    record
        .Headline(Toned(Tone::kStrong, Printable(volume.mountPath)) + ": " +
                  Counted(files.size(), "file") + ", " + Counted(extents.size(), "extent"))
        .Add("volume", volume.mountPath)
        .Add("files", files.size())
        .Add("extents", extents.size())
        .Add("bytes", bytes, "data", Unit::kBytes)
        .Shown("units", units, "units",
               std::to_string(units) + " of 64 KiB = " + HumanBytes(units * kUnitBytes) +
                   (rounding > 0 ? "; rounding adds " + HumanBytes(rounding) : ""))
        .Add("roundingBytes", rounding)
        .Shown("unitsSet", already, "pinned already", Counted(already, "unit"))
        .Add("unitsWithoutBit", withoutBit)
        .Add("pinnedUnitsNow", now)
        .Add("pinnedUnitsThen", then)
        .Add("repinnedFiles", repinned.size());
    if (withoutBit > 0) {
        record.Row("without a bit",
                   Counted(withoutBit, "unit") + " at the device's end, which cannot be pinned");
    }
    if (!repinned.empty()) {
        record.Row("pinned again",
                   Counted(repinned.size(), "file that shares units", "files that share units"));
    }
    return record.Shown("cacheBytes", IfKnown(cacheSize > 0, cacheSize), "cache",
                        CacheText(cacheSize, now * kUnitBytes, then * kUnitBytes));
}

// The volume's bits as they will be when what is queued has been carried out.
UnitSet PinnedAndQueued(const ConfigState& state, const Volume& volume, const VolumeView& view) {
    Mapper mapper;
    UnitSet bits = view.bits;
    for (PinnedFile& queued : InspectAtPaths(QueuedToPin(state, volume.mountPath), volume)) {
        MapPinned(queued, mapper);
        bits.Put(queued.units);
    }
    return bits;
}

}  // namespace

std::string WhyNotFitting(const VolumeView& view, uint64_t now, uint64_t then) {
    if (then <= now || !IsMoreThanCache(view.residency, then)) {
        return "";
    }
    return Printable(view.mountPath) + ": " + HumanBytes(now * kUnitBytes) +
           " pinned or queued and " + HumanBytes((then - now) * kUnitBytes) +
           " more do not fit into the cache of " + HumanBytes(view.residency.cacheSize);
}

std::vector<Overcommit> FindOvercommits(const ConfigState& state, const std::vector<FileRef>& files,
                                        const std::vector<FileRef>& leaving) {
    std::vector<Overcommit> found;
    for (const VolumeFiles& group : GroupByVolume(files)) {
        const VolumeView view = LookAt(*group.volume);
        const UnitSet before = PinnedAndQueued(state, *group.volume, view);
        UnitSet left(before.Bytes().size());
        left.Put(RunsOf(ExtentsOf(FilesOn(*group.volume, leaving))));
        UnitSet then = before.Without(left);
        const uint64_t now = then.Count();
        then.Put(RunsOf(ExtentsOf(group.files)));
        const std::string why = WhyNotFitting(view, now, then.Count());
        // An exchange that needs no more room than before is none.
        if (!why.empty() && then.Count() > before.Count()) {
            found.push_back({group.volume, why});
        }
    }
    return found;
}

std::vector<Record> DescribePrices(bool pin, const std::vector<FileRef>& files,
                                   const std::vector<FileRef>& repinned,
                                   const std::map<std::string, size_t>& requests) {
    std::vector<Record> prices;
    std::vector<FileRef> all = files;
    // What is pinned again may lie on a volume of which nothing else is unpinned: at another mount
    // path of the device.
    all.insert(all.end(), repinned.begin(), repinned.end());
    for (const VolumeFiles& group : GroupByVolume(all)) {
        const Volume& volume = *group.volume;
        const auto sent = requests.find(volume.mountPath);
        prices.push_back(
            DescribePriceOn(volume, pin, FilesOn(volume, files), FilesOn(volume, repinned))
                .Add("requests", sent == requests.end() ? size_t{0} : sent->second, "requests"));
    }
    return prices;
}

}  // namespace client
