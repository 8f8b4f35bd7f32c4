// SPDX-License-Identifier: MIT
#include "client/verbs/file_report.h"

#include <map>

#include "client/pins/device_report.h"
#include "client/show/output.h"

namespace client {

namespace {

std::vector<Record> DescribeFiles(const std::vector<FileRef>& files) {
    std::vector<Record> records;
    for (const FileRef& file : files) {
        records.emplace_back();
        records.back()
            .Add("path", file.path)
            .Add("volume", file.volume->mountPath)
            .Add("inode", file.inode)
            .Add("size", Json::UInt64{file.size});
    }
    return records;
}

}  // namespace

void AddJob(const FileJob& job, Record& report) {
    std::vector<Refusal> refusals = job.list.refusals;
    refusals.insert(refusals.end(), job.passedOver.begin(), job.passedOver.end());
    std::vector<Record> entries;
    for (const PinnedFile& pinned : job.entries) {
        entries.push_back(DescribeEntry(pinned));
    }
    report.List("files", DescribeFiles(job.list.files))
        .List("repinned", DescribeFiles(job.repinned))
        .List("refused", DescribeRefusals(refusals))
        .List("entries", entries)
        .Add("notPinned", TextsToJson(job.notPinned))
        .Add("requests", Json::UInt64{job.messages.size()})
        .Add("sent", Json::UInt64{job.sent});
}

void AddSent(const FileJob& job, const char* verb, Record& report) {
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
    for (const auto& [volume, counts] : perVolume) {
        report.Line(Printable(volume) + ": " + verb + " of " + Counted(counts.first, "file") +
                    " sent in " + Counted(counts.second, "request"));
    }
    if (repinning > 0 && job.sent == job.messages.size()) {
        report.Line(Counted(job.repinned.size(), "pinned file shares", "pinned files share") +
                    " units with them; pinned again by " + Counted(repinning, "request"));
    }
    if (job.messages.empty()) {
        report.Line("no files, nothing sent");
    }
}

}  // namespace client
