// SPDX-License-Identifier: MIT
#include "client/verbs/file_report.h"

#include <map>

#include "client/show/output.h"

namespace client {

namespace {

Json::Value FilesToJson(const std::vector<FileRef>& files) {
    Json::Value list(Json::arrayValue);
    for (const FileRef& file : files) {
        list.append(FileToJson(file));
    }
    return list;
}

}  // namespace

Json::Value JobToJson(const FileJob& job, const char* verb) {
    Json::Value report = NewReport(verb);
    report["files"] = FilesToJson(job.list.files);
    report["repinned"] = FilesToJson(job.repinned);
    report["refused"] = RefusalsToJson(job.list.refusals);
    for (const Json::Value& passed : RefusalsToJson(job.passedOver)) {
        report["refused"].append(passed);
    }
    report["entries"] = EntriesToJson(job.entries);
    report["notPinned"] = Json::Value(Json::arrayValue);
    for (const std::string& path : job.notPinned) {
        report["notPinned"].append(Printable(path));
    }
    report["requests"] = static_cast<Json::UInt64>(job.messages.size());
    report["sent"] = static_cast<Json::UInt64>(job.sent);
    return report;
}

Json::Value EntriesToJson(const std::vector<PinnedFile>& entries) {
    Json::Value list(Json::arrayValue);
    for (const PinnedFile& pinned : entries) {
        Json::Value item;
        item["path"] = Printable(PathOnVolume(pinned.mountPath, pinned.entry.relative));
        item["volume"] = pinned.mountPath;
        item["inode"] = pinned.entry.inode;
        item["fate"] = FateName(pinned.fate);
        item["reason"] = pinned.why;
        list.append(item);
    }
    return list;
}

void PrintSent(const FileJob& job, const char* verb) {
    std::map<std::string, std::pair<size_t, size_t>> perVolume;  // files, requests
    size_t repinning = 0;                                        // requests
    for (size_t i = 0; i < job.sent; ++i) {
        const Message& message = job.messages[i];
        if (message.type != job.type) {
            ++repinning;
            continue;
        }
        auto& [files, requests] = perVolume[message.mountPath];
        files += message.numFiles;
        ++requests;
    }
    for (const auto& [mountPath, counts] : perVolume) {
        Print(Printable(mountPath) + ": " + verb + " of " + Counted(counts.first, "file") +
              " sent in " + Counted(counts.second, "request"));
    }
    if (repinning > 0 && job.sent == job.messages.size()) {
        Print(Counted(job.repinned.size(), "pinned file shares", "pinned files share") +
              " units with them; pinned again by " + Counted(repinning, "request"));
    }
    if (job.messages.empty()) {
        Print("no files, nothing sent");
    }
}

}  // namespace client
