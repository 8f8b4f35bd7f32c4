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
            // The list goes by inodes: another number at the same path is another file.
        } else if (listed.mountPath == mountPath && listed.entry.relative == file.relative) {
            explanation.pathReplaced = true;
        }
    }
    for (size_t place = 0; place < state.queue.size(); ++place) {
        const StoredRequest& request = state.queue[place];
        for (const StoredFile& stored : ParseStoredFiles(request.data)) {
            if (request.mountPath == mountPath && stored.inode == file.inode) {
                // The last request that names it decides what becomes of it.
                explanation.queued.push_back("request " + Printable(request.number) + " (" +
                                             Printable(request.type) + "), place " +
                                             std::to_string(place + 1) + " of " +
                                             std::to_string(state.queue.size()));
                explanation.queuedToPin = request.type == "pinFiles";
            }
        }
    }
}

// Adds the listed files that share units with this one; each loses bits when the other is unpinned.
void AddSharers(const Explanation& explanation, Record& record) {
    std::vector<Record> sharers;
    for (const PinnedFile& listed : explanation.device.listed) {
        const uint64_t common = CountUnits(CommonRuns(listed.units, explanation.file.units));
        // The file itself may be listed, at this mount path and at others.
        if (listed.entry.inode != explanation.file.file.inode && common > 0) {
            sharers.push_back(Record().Add("path", ListedPath(listed)).Add("units", common));
            record.Row("shares",
                       Counted(common, "unit") + " with " + Printable(ListedPath(listed)));
        }
    }
    record.List("shares", sharers);
}

std::string PinnedText(const Explanation& explanation) {
    if (!explanation.stateKnown) {
        return "not known: " + explanation.whyUnknown;
    }
    if (!explanation.pinned) {
        // The name is on the list and means a file that was there before.
        return explanation.pathReplaced ? "no; another file was pinned at this path" : "no";
    }
    return explanation.pinnedAs.empty()
               ? Toned(Tone::kGood, "yes")
               : "yes, renamed: pinned as " + Printable(explanation.pinnedAs);
}

std::vector<Record> DescribeExtents(const std::vector<FileMappingEntry>& extents) {
    std::vector<Record> records;
    for (const FileMappingEntry& extent : extents) {
        // An extent of no length lies in no unit.
        const UnitRuns runs = RunsOf({extent});
        Record record;
        record.Add("fileSector", extent.startSector, "sector in file")
            .Add("sectors", extent.numSectors, "sectors")
            .Add("deviceSector", extent.deviceStartSector, "on the device")
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
    // What is not known of the service's list is empty here; the device is explained all the same.
    explanation.device = ReadDevice(service.state, *file.volume, volumes);
    explanation.file.file = file;
    explanation.file.entry = {file.relative, file.inode};
    explanation.file.mountPath = file.volume->mountPath;
    // It was examined, so it is: only its extents may turn out not to be readable.
    explanation.file.fate = Fate::kThere;
    MapPinned(explanation.file, mapper);
    ReadList(service.state, explanation);
    // A set has room only for units that have a bit; the runs have all. Without a cache it is not
    // known which have none.
    const VolumeView& view = explanation.device.view;
    const UnitRuns& units = explanation.file.units;
    UnitSet own(view.deviceSize > 0 || units.empty()
                    ? view.bits.Bytes().size()
                    : static_cast<size_t>(units.back().last / 8 + 1));
    own.Put(explanation.file.units);
    explanation.counts = CountUnits(explanation.device.view, own);
    explanation.units = CountUnits(explanation.file.units);
    return explanation;
}

// From the cause that hides all others to the one that is left: each step supposes that those
// before it are in order.
std::string WhyNotResident(const Explanation& explanation) {
    const VolumeView& view = explanation.device.view;
    const UnitCounts& counts = explanation.counts;
    if (view.cachePath.empty()) {
        return "the volume has no cache";
    }
    // Units without a bit can be in the cache as well, by chance.
    if (counts.cacheTells && counts.resident == explanation.units) {
        return "";
    }
    // Whatever is missing may come with it.
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
        return "";  // all is as it should be, as far as anybody can see
    }
    if (counts.withDriver < counts.set) {
        return "the driver has not the bitmap that the file holds; check --repair hands it over";
    }
    const std::vector<FileMappingEntry>& extents = explanation.file.file.extents;
    if (const uint64_t unwritten = BytesOf(extents) - BytesOf(WrittenOf(extents))) {
        return HumanBytes(unwritten) +
               " of it were never written, and the service does not read those";
    }
    // Everything is in order but the contents.
    return IsMoreThanCache(view.residency, view.bits.Count())
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
    record.Headline(Toned(Tone::kStrong, Printable(file.path)))
        .Add("path", file.path)
        .Add("volume", file.volume->mountPath, "volume")
        .Add("inode", file.inode, "inode")
        .Add("size", file.size, "size", Unit::kBytes)
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
    AddSharers(explanation, record);
    record.Add("whyNotResident", IfAny(why));
    if (!why.empty()) {
        record.Row("not resident", why);
    }
    AddExtents(explanation, record);
    return record;
}

}  // namespace client
