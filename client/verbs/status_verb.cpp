// SPDX-License-Identifier: MIT
// status: the service, its queue, what is pinned.
#include "client/show/output.h"
#include "client/verbs/status.h"
#include "client/verbs/verbs.h"
#include "client/volume/volume_view.h"
#include "util/request.h"

namespace client {

namespace {

std::string TypeText(const std::string& stored) {
    switch (StringToRequestType(stored)) {
        case kRequestPinFiles:
            return "pin";
        case kRequestUnpinFiles:
            return "unpin";
        case kRequestReloadPinBlocks:
            return "reload";
        default:
            return Printable(stored);
    }
}

Record DescribeService(const ServiceProcess& service, bool standsStill) {
    const std::string yes = Toned(Tone::kGood, "yes");
    const std::string dead = Toned(Tone::kBad, "no, until it is started again");
    const std::string taking =
        standsStill ? Toned(Tone::kBad, "no: it hangs, or was stopped") : yes;
    Record record;
    return record
        .Shown("pid", service.pid, "service",
               "process " + std::to_string(service.pid) + " of " + service.user)
        .Add("user", service.user)
        .Shown("intakeAlive", service.intakeAlive, "",
               "takes requests: " + (service.intakeAlive ? taking : dead))
        .Shown("workerAlive", service.workerAlive, "",
               "carries them out: " + (service.workerAlive ? yes : dead))
        .Add("configPath", service.configPath);
}

void AddServices(const Status& status, Record& report) {
    std::vector<Record> services;
    for (const ServiceProcess& service : status.services) {
        services.push_back(DescribeService(service, status.standsStill));
    }
    if (services.empty()) {
        report.Row("service", Toned(Tone::kBad, NoServiceText()));
    }
    report.List("services", services, Layout::kBlocks);
}

void AddConfiguration(const Status& status, Record& report) {
    const std::string& path = status.stored.configPath;
    report
        .Shown("configPath", path, "configuration",
               status.stored.known ? Printable(path) : Toned(Tone::kBad, status.stored.why))
        .Add("defects", TextsToJson(status.stored.state.defects));
    for (const std::string& defect : status.stored.state.defects) {
        report.Row("", Toned(Tone::kBad, defect));
    }
}

void AddQueue(const Status& status, Record& report) {
    const QueueFacts& queue = status.queue;
    Record facts;
    if (status.queueKnown) {
        facts.Add("id", queue.id)
            .Add("key", queue.key)
            .Add("messages", Json::UInt64{queue.messages})
            .Add("bytes", Json::UInt64{queue.bytes})
            .Add("limitBytes", Json::UInt64{queue.limit});
    } else {
        facts.Add("error", status.queueWhy);
    }
    report.Shown("queue", facts.ToJson(), "queue",
                 status.queueKnown ? Counted(queue.messages, "message") + " waiting, room for " +
                                         std::to_string(queue.limit / sizeof(Request))
                                   : Toned(Tone::kBad, status.queueWhy));
}

void AddRequests(const Status& status, Record& report) {
    std::vector<Record> requests;
    for (const RequestStatus& item : status.requests) {
        Record record;
        record.Add("number", item.request.number, "")
            .Shown("type", item.request.type, "", TypeText(item.request.type))
            .Shown("files", Json::UInt64{item.files}, "",
                   item.files > 0 ? Counted(item.files, "file") : "")
            .Add("volume", item.request.mountPath, "")
            .Add("state", item.state, "");
        if (item.state == "running") {
            record.Add("devicePosition", Json::UInt64{item.position});
        }
        requests.push_back(record);
    }
    const std::string count = std::to_string(requests.size()) + " queued, in this order";
    report.Row("requests", requests.empty() ? "none queued" : count)
        .List("requests", requests, Layout::kRows);
    if (!requests.empty()) {
        report.Line(
            Toned(Tone::kDim, "  Whether a volume is pending is not visible from outside."));
    }
}

Record DescribeVolume(const VolumeView& view, size_t files) {
    const UnitCounts counts = CountUnits(view, view.bits);
    std::string text = Counted(files, "file") + " pinned, " + Counted(counts.set, "unit") + " = " +
                       HumanBytes(counts.set * kUnitBytes);
    if (counts.cacheTells) {
        text += " of a cache of " + HumanBytes(view.residency.cacheSize) + ", " +
                std::to_string(counts.resident) + " in it now";
    } else if (view.cachePath.empty()) {
        text += "; " + Toned(Tone::kBad, "the volume has no cache");
    }
    Record record;
    return record
        .Shown("volume", view.mountPath, "volume",
               Toned(Tone::kStrong, Printable(view.mountPath)) + ": " + text)
        .Add("files", Json::UInt64{files})
        .Add("unitsSet", Json::UInt64{counts.set})
        .Add("unitsWithDriver", IfKnown(counts.cacheTells, counts.withDriver))
        .Add("unitsResident", IfKnown(counts.cacheTells, counts.resident))
        .Add("cacheBytes", IfKnown(counts.cacheTells, view.residency.cacheSize));
}

void AddVolumes(const Status& status, Record& report) {
    std::vector<Record> volumes;
    for (const VolumeView& view : status.volumes) {
        const auto pinned = status.stored.state.pinned.find(view.mountPath);
        volumes.push_back(DescribeVolume(
            view, pinned == status.stored.state.pinned.end() ? 0 : pinned->second.size()));
    }
    report.List("volumes", volumes, Layout::kBlocks);
}

}  // namespace

int StatusVerb(const StatusOptions& options) {
    const Status status = ReadStatus(options.common.configPath);
    Record report;
    AddServices(status, report);
    AddConfiguration(status, report);
    AddQueue(status, report);
    AddRequests(status, report);
    AddVolumes(status, report);
    return Finish("status", report, options.common.json, ExitStatusOf(status));
}

}  // namespace client
