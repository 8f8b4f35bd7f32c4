// SPDX-License-Identifier: MIT
// explain: everything about one file.
#include <algorithm>

#include "client/exit_status.h"
#include "client/file_job.h"
#include "client/output.h"
#include "client/service_state.h"
#include "client/sharing.h"
#include "client/verbs.h"
#include "client/volume_view.h"

namespace {

constexpr size_t kExtentsShown = 10;

struct Sharer {
    std::string path;
    uint64_t units;  // in common
};

struct Explanation {
    FileRef file;
    bool mapped = false;
    std::string whyNotMapped;
    ServiceState service;
    VolumeView view;
    bool pinned = false;        // its inode is on the list
    std::string pinnedAs;       // the path that the list has for the inode, when it is another
    bool pathReplaced = false;  // the list has its path with another inode
    std::vector<std::string> queued;  // "request 7, 2nd in the queue: pin"
    bool queuedToPin = false;
    UnitRuns runs;
    uint64_t units = 0;
    uint64_t withBit = 0;
    uint64_t set = 0;
    uint64_t driver = 0;
    uint64_t resident = 0;
    uint64_t neverWritten = 0;  // bytes
    std::vector<Sharer> sharers;
};

void ReadList(Explanation& explanation) {
    const ConfigState& state = explanation.service.state;
    const FileRef& file = explanation.file;
    const auto pinned = state.pinned.find(file.volume->mountPath);
    if (pinned != state.pinned.end()) {
        for (const StoredFile& stored : pinned->second) {
            if (stored.inode == file.inode) {
                explanation.pinned = true;
                explanation.pinnedAs = stored.relative == file.relative ? "" : stored.relative;
            } else if (stored.relative == file.relative) {
                explanation.pathReplaced = true;
            }
        }
    }
    for (size_t place = 0; place < state.queue.size(); ++place) {
        const StoredRequest& request = state.queue[place];
        for (const StoredFile& stored : ParseStoredFiles(request.data)) {
            if (request.mountPath == file.volume->mountPath && stored.inode == file.inode) {
                explanation.queued.push_back("request " + Printable(request.number) + " (" +
                                             Printable(request.type) + "), place " +
                                             std::to_string(place + 1) + " of " +
                                             std::to_string(state.queue.size()));
                explanation.queuedToPin = request.type == "pinFiles";
            }
        }
    }
}

void CountAll(Explanation& explanation) {
    const VolumeView& view = explanation.view;
    UnitSet wanted(view.bits.Bytes().size());
    explanation.runs = RunsOf(explanation.file.extents);
    explanation.units = CountUnits(explanation.runs);
    wanted.Put(explanation.runs);
    explanation.withBit = wanted.Count();
    explanation.set = view.bits.CountIn(explanation.runs);
    explanation.driver = view.residency.pinned.CountIn(explanation.runs);
    explanation.resident = view.residency.resident.CountIn(explanation.runs);
    explanation.neverWritten =
        BytesOf(explanation.file.extents, false) - BytesOf(explanation.file.extents, true);
}

void FindSharers(const std::vector<Volume>& volumes, Mapper& mapper, Explanation& explanation) {
    const Volume& volume = *explanation.file.volume;
    for (const PinnedNow& now : LookAtPinned(explanation.service.state, volume, volumes, mapper)) {
        const uint64_t common = CountUnits(CommonRuns(RunsOf(now.file.extents), explanation.runs));
        if (now.stored.inode != explanation.file.inode && common > 0) {
            explanation.sharers.push_back(
                {PathInRequest(volume.mountPath, now.stored.relative), common});
        }
    }
}

// Why units of the file are not in the cache; empty when all are, or when that is not known.
std::string WhyNotResident(const Explanation& explanation) {
    const VolumeView& view = explanation.view;
    if (view.cachePath.empty()) {
        return "the volume has no cache";
    }
    if (view.residency.known && explanation.resident == explanation.units) {
        return "";
    }
    if (explanation.queuedToPin) {
        return "its request is not done yet";
    }
    if (!explanation.service.known) {
        return "whether it is pinned is not known: " + explanation.service.why;
    }
    if (!explanation.pinned && explanation.pathReplaced) {
        return "the file that was pinned at this path was replaced by this one; check --repair "
               "follows it";
    }
    if (!explanation.pinned) {
        return "it is not pinned, so nothing keeps it there";
    }
    if (explanation.set < explanation.withBit) {
        return Counted(explanation.withBit - explanation.set, "unit") +
               " not set: it grew, was rewritten, or a unit it shares was cleared; check --repair "
               "pins it again";
    }
    if (!view.residency.known) {
        return "";
    }
    if (explanation.driver < explanation.set) {
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

void PrintExtents(const Explanation& explanation) {
    Table table("rrrrl");
    table.Add({"sector in file", "sectors", "on the device", "units", ""});
    for (size_t i = 0; i < explanation.file.extents.size() && i < kExtentsShown; ++i) {
        const FileMappingEntry& extent = explanation.file.extents[i];
        const UnitRuns runs = RunsOf({extent});
        table.Add({std::to_string(extent.startSector), std::to_string(extent.numSectors),
                   std::to_string(extent.deviceStartSector),
                   runs.empty()
                       ? "-"
                       : std::to_string(runs[0].first) + "-" + std::to_string(runs[0].last),
                   extent.uninitialized == 1 ? "never written" : ""});
    }
    table.Show("  ");
    if (explanation.file.extents.size() > kExtentsShown) {
        Print("  and " + std::to_string(explanation.file.extents.size() - kExtentsShown) +
              " more (--json shows all)");
    }
}

std::string PinnedText(const Explanation& explanation) {
    if (!explanation.service.known) {
        return "not known: " + explanation.service.why;
    }
    if (!explanation.pinned) {
        return explanation.pathReplaced ? "no; another file was pinned at this path" : "no";
    }
    return explanation.pinnedAs.empty() ? Toned(Tone::kGood, "yes")
                                        : "yes, as " + Printable(explanation.pinnedAs);
}

void PrintExplanation(const Explanation& explanation) {
    const FileRef& file = explanation.file;
    const std::string why = WhyNotResident(explanation);
    Table table("ll");
    Print(Toned(Tone::kStrong, Printable(file.path)));
    table.Add({"volume", Printable(file.volume->mountPath)});
    table.Add({"inode", std::to_string(file.inode)});
    table.Add({"size", HumanBytes(file.size)});
    table.Add({"pinned", PinnedText(explanation)});
    for (const std::string& queued : explanation.queued) {
        table.Add({"queued", queued});
    }
    if (explanation.mapped) {
        std::string text = std::to_string(explanation.units) + " of 64 KiB, " +
                           std::to_string(explanation.set) + " set";
        if (explanation.view.residency.known) {
            text += ", with the driver " + std::to_string(explanation.driver) + ", in the cache " +
                    std::to_string(explanation.resident);
        }
        table.Add({"units", text});
        if (explanation.withBit < explanation.units) {
            table.Add({"", Counted(explanation.units - explanation.withBit, "unit") +
                               " at the device's end, for which there are no bits"});
        }
    } else {
        table.Add({"extents", Toned(Tone::kBad, explanation.whyNotMapped)});
    }
    for (const Sharer& sharer : explanation.sharers) {
        table.Add({"shares", Counted(sharer.units, "unit") + " with " + Printable(sharer.path)});
    }
    if (!why.empty()) {
        table.Add({"not resident", why});
    }
    table.Show("  ");
    if (explanation.mapped) {
        PrintExtents(explanation);
    }
}

Json::Value ToJson(const Explanation& explanation) {
    const bool tells = explanation.view.residency.known;
    const std::string why = WhyNotResident(explanation);
    Json::Value item = FileToJson(explanation.file);
    item["pinned"] = explanation.service.known ? Json::Value(explanation.pinned) : Json::Value();
    item["pathReplaced"] = explanation.pathReplaced;
    item["queued"] = Json::Value(Json::arrayValue);
    for (const std::string& queued : explanation.queued) {
        item["queued"].append(queued);
    }
    item["extents"] = Json::Value(Json::arrayValue);
    for (const FileMappingEntry& extent : explanation.file.extents) {
        Json::Value entry;
        entry["fileSector"] = Json::UInt64{extent.startSector};
        entry["sectors"] = Json::UInt64{extent.numSectors};
        entry["deviceSector"] = Json::UInt64{extent.deviceStartSector};
        entry["written"] = extent.uninitialized != 1;
        item["extents"].append(entry);
    }
    item["unitRuns"] = Json::Value(Json::arrayValue);
    for (const UnitRun& run : explanation.runs) {
        Json::Value pair(Json::arrayValue);
        pair.append(Json::UInt64{run.first});
        pair.append(Json::UInt64{run.last});
        item["unitRuns"].append(pair);
    }
    item["units"] = Json::UInt64{explanation.units};
    item["unitsSet"] = Json::UInt64{explanation.set};
    item["unitsWithDriver"] = tells ? Json::Value(Json::UInt64{explanation.driver}) : Json::Value();
    item["unitsResident"] = tells ? Json::Value(Json::UInt64{explanation.resident}) : Json::Value();
    item["shares"] = Json::Value(Json::arrayValue);
    for (const Sharer& sharer : explanation.sharers) {
        Json::Value entry;
        entry["path"] = sharer.path;
        entry["units"] = Json::UInt64{sharer.units};
        item["shares"].append(entry);
    }
    item["whyNotResident"] = why.empty() ? Json::Value() : Json::Value(why);
    return item;
}

}  // namespace

int ExplainVerb(const ExplainOptions& options) {
    Json::Value report = NewReport("explain");
    Explanation explanation;
    std::vector<Volume> volumes;
    Mapper mapper;
    std::string why;
    if (!ListVolumes(volumes) || !ExamineFile(options.path, volumes, explanation.file, why)) {
        Say(Printable(options.path) + ": " + why);
        report["refused"] = RefusalsToJson({{options.path, why}});
        if (options.common.json) {
            PrintReport(report, kExitRefused);
        }
        return kExitRefused;
    }
    explanation.mapped = MapForRequest(mapper, explanation.file, explanation.whyNotMapped);
    explanation.service = ReadServiceState(options.common);
    explanation.view = LookAt(*explanation.file.volume);
    ReadList(explanation);
    CountAll(explanation);
    FindSharers(volumes, mapper, explanation);
    const int status = explanation.service.known ? kExitDone : kExitNoService;
    if (options.common.json) {
        report["file"] = ToJson(explanation);
        PrintReport(report, status);
    } else {
        PrintExplanation(explanation);
    }
    return status;
}
