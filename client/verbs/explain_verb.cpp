// SPDX-License-Identifier: MIT
// explain: everything about one file.
#include "client/pins/device_report.h"
#include "client/pins/explanation.h"
#include "client/pins/listed_paths.h"
#include "client/request/file_check.h"
#include "client/show/exit_status.h"
#include "client/show/output.h"
#include "client/verbs/verbs.h"

namespace client {

namespace {

// Says what the service's list has under a path at which no file can be explained.
void SayEntries(const std::string& path, const ServiceState& service,
                const std::vector<Volume>& volumes, Record& report) {
    std::vector<Record> entries;
    for (const auto& [given, pinned] : EntriesNamed({path}, service.state, volumes)) {
        Say("inode " + std::to_string(pinned.entry.inode) + " " + WhyNotUnpinnable(pinned));
        entries.push_back(DescribeEntry(pinned));
    }
    report.List("entries", entries);
}

}  // namespace

int ExplainVerb(const ExplainOptions& options) {
    const ServiceState service = ReadServiceState(options.common.configPath);
    std::vector<Volume> volumes;
    FileRef file;
    std::string why = "the volumes cannot be listed";
    Record report;
    // The file is explained without the list too, as far as that goes.
    int status = service.known ? kExitDone : kExitNoService;
    if (!ListVolumes(volumes) || !ExamineFile(options.path, volumes, file, why)) {
        why += why == kIsDirectory ? "; list and check tell of whole volumes" : "";
        status = Refuse(report, options.path, why);
        SayEntries(options.path, service, volumes, report);
    } else {
        report.Member("file", DescribeExplanation(Explain(file, service, volumes)));
    }
    return Finish("explain", report, options.common.json, status);
}

}  // namespace client
