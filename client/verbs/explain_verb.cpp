// SPDX-License-Identifier: MIT
// explain: everything about one file.
#include "client/pins/explanation.h"
#include "client/pins/listed_paths.h"
#include "client/show/exit_status.h"
#include "client/show/output.h"
#include "client/verbs/file_report.h"
#include "client/verbs/verbs.h"

namespace client {

namespace {

constexpr size_t kExtentsShown = 10;

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

// The entries of the service's list that name a path which cannot be examined.
std::vector<PinnedFile> EntriesAt(const ExplainOptions& options,
                                  const std::vector<Volume>& volumes) {
    std::vector<PinnedFile> entries;
    const ServiceState service = ReadServiceState(options.common.configPath);
    for (auto& [path, pinned] : EntriesNamed({options.path}, service.state, volumes)) {
        if (pinned.fate != Fate::kThere) {
            entries.push_back(pinned);
        }
    }
    return entries;
}

}  // namespace

int ExplainVerb(const ExplainOptions& options) {
    Json::Value report = NewReport("explain");
    Explanation explanation;
    std::vector<Volume> volumes;
    std::string why;
    if (!ListVolumes(volumes) || !ExamineFile(options.path, volumes, explanation.file, why)) {
        const std::vector<PinnedFile> entries = EntriesAt(options, volumes);
        Say(Printable(options.path) + ": " + why);
        for (const PinnedFile& pinned : entries) {
            Say("inode " + std::to_string(pinned.entry.inode) + " " + WhyNotThere(pinned));
        }
        report["refused"] = RefusalsToJson({{options.path, why}});
        report["entries"] = EntriesToJson(entries);
        if (options.common.json) {
            PrintReport(report, kExitRefused);
        }
        return kExitRefused;
    }
    FillExplanation(options.common.configPath, volumes, explanation);
    const int status = explanation.service.known ? kExitDone : kExitNoService;
    if (options.common.json) {
        report["file"] = ToJson(explanation);
        PrintReport(report, status);
    } else {
        PrintExplanation(explanation);
    }
    return status;
}

}  // namespace client
