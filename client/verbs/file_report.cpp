// SPDX-License-Identifier: MIT
#include "client/verbs/file_report.h"

#include <map>

#include "client/show/output.h"

namespace client {

Json::Value JobToJson(const FileJob& job, const ListMatch& match, const char* verb) {
    Json::Value report = NewReport(verb);
    report["files"] = Json::Value(Json::arrayValue);
    for (const FileRef& file : job.list.files) {
        report["files"].append(FileToJson(file));
    }
    report["mended"] = Json::Value(Json::arrayValue);
    for (const FileRef& file : job.mended) {
        report["mended"].append(FileToJson(file));
    }
    report["refused"] = RefusalsToJson(job.list.refusals);
    report["staleEntries"] = StaleToJson(match.stale);
    report["notPinned"] = Json::Value(Json::arrayValue);
    for (const std::string& path : match.notPinned) {
        report["notPinned"].append(Printable(path));
    }
    report["requests"] = static_cast<Json::UInt64>(
        job.sending.empty() ? job.messages.size() + job.mending.size() : job.sending.size());
    report["sent"] = static_cast<Json::UInt64>(job.sent);
    return report;
}

void PrintSent(const FileJob& job, const char* verb) {
    std::map<std::string, std::pair<size_t, size_t>> perVolume;  // files, requests
    for (size_t i = 0; i < job.sent && i < job.messages.size(); ++i) {
        auto& [files, requests] = perVolume[job.messages[i].mountPath];
        files += job.messages[i].numFiles;
        ++requests;
    }
    for (const auto& [mountPath, counts] : perVolume) {
        Print(Printable(mountPath) + ": " + verb + " of " + Counted(counts.first, "file") +
              " sent in " + Counted(counts.second, "request"));
    }
    if (!job.mended.empty() && job.sent == job.sending.size()) {
        Print(Counted(job.mended.size(), "pinned file shares", "pinned files share") +
              " units with them; pinned again by " + Counted(job.mending.size(), "request"));
    }
    if (job.messages.empty() && job.sent == 0) {
        Print("no files, nothing sent");
    }
}

void PrintStaleSent(const std::vector<StaleEntry>& entries) {
    Print(Counted(entries.size(), "entry", "entries") +
          " whose file is gone, replaced or empty: to be taken off the list; check --repair clears "
          "the units that are left set");
}

void PrintStale(const std::vector<StaleEntry>& entries, const std::vector<StaleEntry>& still) {
    Print("  " + Counted(entries.size() - still.size(), "entry", "entries") +
          " whose file is gone, replaced or empty: off the list; check --repair clears the units "
          "that are left set");
    for (const StaleEntry& entry : still) {
        Print("  " + Toned(Tone::kBad, "not released") + " " +
              Printable(PathOnVolume(entry.volume->mountPath, entry.stored.relative)) +
              ": is still on the service's list");
    }
}

}  // namespace client
