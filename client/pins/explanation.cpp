// SPDX-License-Identifier: MIT
#include "client/pins/explanation.h"

#include <algorithm>

#include "client/show/output.h"

namespace client {

namespace {

constexpr size_t kExtentsShown = 10;

void ReadList(const ConfigState& state, Explanation& explanation) {
    const FileRef& file = explanation.file.file;
    const std::string& mountPath = file.volume->mountPath;
    for (const PinnedFile& listed : explanation.device.listed) {
        if (listed.mountPath == mountPath && listed.entry.inode == file.inode) {
            explanation.pinned = true;
            explanation.pinnedAs =
                listed.entry.relative == file.relative ? "" : listed.entry.relative;
        } else if (listed.mountPath == mountPath && listed.entry.relative == file.relative) {
            explanation.pathReplaced = true;
        }
    }
    for (size_t place = 0; place < state.queue.size(); ++place) {
        const StoredRequest& request = state.queue[place];
        for (const StoredFile& stored : ParseStoredFiles(request.data)) {
            if (request.mountPath == mountPath && stored.inode == file.inode) {
                explanation.queued.push_back("request " + Printable(request.number) + " (" +
                                             Printable(request.type) + "), place " +
                                             std::to_string(place + 1) + " of " +
                                             std::to_string(state.queue.size()));
                explanation.queuedToPin = request.type == "pinFiles";
            }
        }
    }
}

void FindSharers(Explanation& explanation) {
    for (const PinnedFile& listed : explanation.device.listed) {
        const uint64_t common = CountUnits(CommonRuns(listed.units, explanation.file.units));
        if (listed.entry.inode != explanation.file.file.inode && common > 0) {
            explanation.sharers.push_back({ListedPath(listed), common});
        }
    }
}

std::string PinnedText(const Explanation& explanation) {
    if (!explanation.stateKnown) {
        return "not known: " + explanation.whyUnknown;
    }
    if (!explanation.pinned) {
        return explanation.pathReplaced ? "no; another file was pinned at this path" : "no";
    }
    return explanation.pinnedAs.empty()
               ? Toned(Tone::kGood, "yes")
               : "yes, renamed: pinned as " + Printable(explanation.pinnedAs);
}

std::vector<Record> DescribeExtents(const std::vector<FileMappingEntry>& extents) {
    std::vector<Record> records;
    for (const FileMappingEntry& extent : extents) {
        const UnitRuns runs = RunsOf({extent});
        Record record;
        record.Add("fileSector", Json::UInt64{extent.startSector}, "sector in file")
            .Add("sectors", Json::UInt64{extent.numSectors}, "sectors")
            .Add("deviceSector", Json::UInt64{extent.deviceStartSector}, "on the device")
            .Row("units", runs.empty()
                              ? "-"
                              : std::to_string(runs[0].first) + "-" + std::to_string(runs[0].last))
            .Shown("written", extent.uninitialized != 1, "",
                   extent.uninitialized == 1 ? "never written" : "");
        records.push_back(record);
    }
    return records;
}

void AddExtents(const Explanation& explanation, Record& record) {
    const std::vector<Record> extents = DescribeExtents(explanation.file.file.extents);
    const size_t shown = std::min(extents.size(), kExtentsShown);
    record.Add("unitRuns", RunsToJson(explanation.file.units));
    // The text shows the first of them, the JSON form all.
    record.List("extents", {extents.begin(), extents.begin() + static_cast<ptrdiff_t>(shown)},
                Layout::kHeadedRows);
    record.List("extents", extents);
    if (shown < extents.size()) {
        record.Line("and " + std::to_string(extents.size() - shown) + " more (--json shows all)");
    }
}

}  // namespace

Explanation Explain(const FileRef& file, const ServiceState& service,
                    const std::vector<Volume>& volumes) {
    Explanation explanation;
    Mapper mapper;
    explanation.stateKnown = service.known;
    explanation.whyUnknown = service.why;
    explanation.device = ReadDevice(service.state, *file.volume, volumes);
    explanation.file.file = file;
    explanation.file.entry = {file.relative, file.inode};
    explanation.file.mountPath = file.volume->mountPath;
    explanation.file.fate = Fate::kThere;
    MapPinned(explanation.file, mapper);
    ReadList(service.state, explanation);
    UnitSet own(explanation.device.view.bits.Bytes().size());
    own.Put(explanation.file.units);
    explanation.counts = CountUnits(explanation.device.view, own);
    explanation.units = CountUnits(explanation.file.units);
    explanation.neverWritten =
        BytesOf(explanation.file.file.extents) - BytesOf(WrittenOf(explanation.file.file.extents));
    FindSharers(explanation);
    return explanation;
}

std::string WhyNotResident(const Explanation& explanation) {
    const VolumeView& view = explanation.device.view;
    const UnitCounts& counts = explanation.counts;
    if (view.cachePath.empty()) {
        return "the volume has no cache";
    }
    if (counts.cacheTells && counts.resident == explanation.units) {
        return "";
    }
    if (explanation.queuedToPin) {
        return "its request is not done yet";
    }
    if (!explanation.stateKnown) {
        return "whether it is pinned is not known: " + explanation.whyUnknown;
    }
    if (!explanation.pinned) {
        return explanation.pathReplaced
                   ? "the file that was pinned at this path was replaced by this one; check "
                     "--repair pins it"
                   : "it is not pinned, so nothing keeps it there";
    }
    if (counts.set < counts.units) {
        return Counted(counts.units - counts.set, "unit") +
               " not set: it grew, was rewritten, or a unit it shares was cleared; check --repair "
               "pins it again";
    }
    if (!counts.cacheTells) {
        return "";
    }
    if (counts.withDriver < counts.set) {
        return "the driver has not the bitmap that the file holds; check --repair hands it over";
    }
    if (explanation.neverWritten > 0) {
        return HumanBytes(explanation.neverWritten) +
               " of it were never written, and the service does not read those";
    }
    return view.bits.Count() * kUnitBytes > view.residency.cacheSize
               ? "more is pinned than the cache holds"
               : "it was not read since the cache began, or the reading was interrupted or failed; "
                 "reload reads it";
}

Record DescribeExplanation(const Explanation& explanation) {
    const FileRef& file = explanation.file.file;
    const std::string why = WhyNotResident(explanation);
    const std::string fate =
        explanation.pinnedAs.empty() ? FateName(Fate::kThere) : FateName(Fate::kRenamed);
    Record record;
    std::vector<Record> sharers;
    record.Headline(Toned(Tone::kStrong, Printable(file.path)))
        .Add("path", file.path)
        .Add("volume", file.volume->mountPath, "volume")
        .Add("inode", file.inode, "inode")
        .Add("size", Json::UInt64{file.size}, "size", Unit::kBytes)
        .Shown("pinned", explanation.stateKnown ? Json::Value(explanation.pinned) : Json::Value(),
               "pinned", PinnedText(explanation))
        .Add("fate", explanation.pinned ? Json::Value(fate) : Json::Value())
        .Add("pathReplaced", explanation.pathReplaced)
        .Add("queued", TextsToJson(explanation.queued));
    for (const std::string& queued : explanation.queued) {
        record.Row("queued", queued);
    }
    if (explanation.file.fate == Fate::kUnknown) {
        record.Row("extents", Toned(Tone::kBad, explanation.file.why));
    } else {
        AddCounts(explanation.counts, record);
    }
    // Without a cache the size of the bitmap is not known, so nothing is known to lie behind it.
    if (explanation.device.view.deviceSize > 0 && explanation.counts.units < explanation.units) {
        record.Row("", Counted(explanation.units - explanation.counts.units, "unit") +
                           " at the device's end, for which there are no bits");
    }
    for (const Sharer& sharer : explanation.sharers) {
        Record item;
        sharers.push_back(item.Add("path", sharer.path).Add("units", Json::UInt64{sharer.units}));
        record.Row("shares", Counted(sharer.units, "unit") + " with " + Printable(sharer.path));
    }
    record.List("shares", sharers);
    record.Add("whyNotResident", IfAny(why));
    if (!why.empty()) {
        record.Row("not resident", why);
    }
    AddExtents(explanation, record);
    return record;
}

}  // namespace client
