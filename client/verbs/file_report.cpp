// SPDX-License-Identifier: MIT
#include "client/verbs/file_report.h"

#include <map>

#include "client/pins/device_report.h"
#include "client/show/output.h"

namespace client {

namespace {

Record DescribeRefusal(const Refusal& refusal) {
    return Record().Add("path", refusal.path).Add("reason", refusal.reason);
}

}  // namespace

Record DescribeFile(const FileRef& file) {
    return Record()
        .Add("path", file.path)
        .Add("volume", file.volume->mountPath)
        .Add("inode", file.inode)
        .Add("size", Json::UInt64{file.size});
}

void AddJob(const FileJob& job, Record& report) {
    std::vector<Refusal> refusals = job.list.refusals;
    refusals.insert(refusals.end(), job.passedOver.begin(), job.passedOver.end());
    report.List("files", RecordsOf(job.list.files, DescribeFile))
        .List("repinned", RecordsOf(job.repinned, DescribeFile))
        .List("refused", RecordsOf(refusals, DescribeRefusal))
        .List("entries", RecordsOf(job.entries, DescribeEntry))
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
