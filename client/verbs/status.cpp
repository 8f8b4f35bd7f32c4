// SPDX-License-Identifier: MIT
#include "client/verbs/status.h"

#include <algorithm>
#include <set>

#include "client/service/queue_look.h"
#include "client/show/exit_status.h"
#include "client/show/output.h"
#include "client/show/report.h"
#include "client/verbs/verbs.h"
#include "util/request.h"

namespace client {

namespace {

// The service is at the first request of a volume whose device it has open. Requests of other
// volumes that stand before that one were passed over, which it does for pending volumes only.
void TellStates(Status& status) {
    const bool alive = !status.services.empty() && status.services.front().workerAlive;
    std::set<std::string> begun;
    size_t running = status.requests.size();
    for (size_t i = 0; alive && i < status.requests.size() && running == status.requests.size();
         ++i) {
        RequestStatus& request = status.requests[i];
        const std::string& mountPath = request.request.mountPath;
        const auto view = std::find_if(
            status.volumes.begin(), status.volumes.end(),
            [&mountPath](const auto& other) { return other.view.mountPath == mountPath; });
        // Only the first request of a volume can be the one; the others wait for it.
        if (begun.insert(mountPath).second && view != status.volumes.end() &&
            !view->view.cachePath.empty() &&
            ReadPosition(status.services.front(), view->view.cachePath, request.position)) {
            running = i;
        }
    }
    for (size_t i = 0; i < status.requests.size(); ++i) {
        const bool overtaken = running < status.requests.size() && i < running;
        status.requests[i].state = i == running      ? "running"
                                   : overtaken       ? "waiting (overtaken: its volume was pending)"
                                   : i == 0 && alive ? "next, or just begun"
                                                     : "waiting";
    }
}

std::string TypeText(const std::string& stored) {
    const char* const verb = VerbOf(StringToRequestType(stored));
    return verb != nullptr ? verb : Printable(stored);
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
            .Add("messages", queue.messages)
            .Add("bytes", queue.bytes)
            .Add("limitBytes", queue.limit);
    } else {
        // A queue that is not there is no error of this command: the rest is shown.
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
            .Shown("files", item.files, "", item.files > 0 ? Counted(item.files, "file") : "")
            .Add("volume", item.request.mountPath, "")
            .Add("state", item.state, "");
        // Anywhere else the position would be that of an older request.
        if (item.state == "running") {
            record.Add("devicePosition", item.position);
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

Record DescribeVolume(const VolumeStatus& volume) {
    const VolumeView& view = volume.view;
    const UnitCounts counts = CountUnits(view, view.bits);
    const std::string why = WhyNotInForce(view, volume.files);
    const std::string remedy = RemedyFor(volume.health);
    std::string text = Counted(volume.files, "file") + " pinned, " + Counted(counts.set, "unit") +
                       " = " + HumanBytes(counts.set * kUnitBytes);
    if (counts.cacheTells) {
        text += " of a cache of " + HumanBytes(view.residency.cacheSize) + ", " +
                std::to_string(counts.resident) + " in it now";
    }
    Record record;
    record
        .Shown("volume", view.mountPath, "volume",
               Toned(Tone::kStrong, Printable(view.mountPath)) + ": " + text)
        .Shown("state", PinHealthName(volume.health), "",
               Toned(ToneOf(volume.health), PinHealthName(volume.health)) +
                   (why.empty() ? "" : ": " + why) + (remedy.empty() ? "" : "; remedy: " + remedy))
        .Add("remedy", IfAny(remedy))
        .Add("files", volume.files)
        .Add("unitsSet", counts.set)
        .Add("unitsWithDriver", IfKnown(counts.cacheTells, counts.withDriver))
        .Add("unitsResident", IfKnown(counts.cacheTells, counts.resident))
        .Add("cacheBytes", IfKnown(counts.cacheTells, view.residency.cacheSize));
    return record;
}

Record DescribeUnmounted(const std::string& mountPath, size_t files) {
    return Record()
        .Shown(
            "volume", mountPath, "volume",
            Toned(Tone::kStrong, Printable(mountPath)) + ": " + Counted(files, "file") + " pinned")
        .Shown("state", "not mounted", "", Toned(Tone::kBad, WhyNotThere(mountPath)))
        .Add("files", files);
}

void AddVolumes(const Status& status, Record& report) {
    std::vector<Record> volumes = RecordsOf(status.volumes, DescribeVolume);
    for (const std::string& mountPath : status.unmounted) {
        volumes.push_back(
            DescribeUnmounted(mountPath, status.stored.state.pinned.at(mountPath).size()));
    }
    report.List("volumes", volumes, Layout::kBlocks);
}

VolumeStatus ReadVolume(const ConfigState& state, const Volume& volume) {
    VolumeStatus read;
    read.view = LookAt(volume);
    const auto pinned = state.pinned.find(volume.mountPath);
    read.files = pinned == state.pinned.end() ? 0 : pinned->second.size();
    read.health = HealthOf(read.view, read.files, 0);
    // The files are looked at where they decide alone: of 100,000 that takes seconds.
    if (read.health == PinHealth::kCached) {
        read.health = HealthOf(read.view, read.files, FindAbsent(state, volume, read.view).Count());
    }
    return read;
}

}  // namespace

Status ReadServiceStatus(const std::string& configPath) {
    Status status;
    // Service and queue before the file: a request that comes meanwhile is then in one of the two.
    status.services = FindServices();
    status.queueKnown = ReadQueueFacts(status.queue, status.queueWhy);
    // Looking for it takes a second, and only a service that should take messages can stand still.
    status.standsStill =
        !status.services.empty() && (status.services.front().stopped ||
                                     (status.queueKnown && status.services.front().intakeAlive &&
                                      MessagesStandStill(status.queue.id)));
    status.stored = ReadServiceState(configPath);
    return status;
}

Status ReadStatus(const std::string& configPath) {
    Status status = ReadServiceStatus(configPath);
    std::vector<Volume> volumes;
    std::set<std::string> wanted;
    // What is neither pinned nor asked for is no matter of the service's.
    for (const StoredRequest& request : status.stored.state.queue) {
        status.requests.push_back({request, ParseStoredFiles(request.data).size(), "", 0});
        wanted.insert(request.mountPath);
    }
    for (const auto& [mountPath, files] : status.stored.state.pinned) {
        wanted.insert(mountPath);
    }
    // Where they cannot be listed, service and queue are shown all the same.
    ListVolumes(volumes);
    for (const Volume& volume : volumes) {
        if (wanted.count(volume.mountPath) > 0) {
            status.volumes.push_back(ReadVolume(status.stored.state, volume));
        }
    }
    status.unmounted = UnmountedPaths(status.stored.state, volumes);
    TellStates(status);
    return status;
}

int ExitStatusOf(const Status& status) {
    const bool good = !status.services.empty() && status.services.front().intakeAlive &&
                      status.services.front().workerAlive && status.queueKnown &&
                      status.stored.known && !status.standsStill;
    // A volume that is not there cannot be told to agree.
    PinHealth health = status.unmounted.empty() ? PinHealth::kNothing : PinHealth::kDiffers;
    for (const VolumeStatus& volume : status.volumes) {
        health = std::max(health, volume.health);
    }
    return good ? ExitStatusOf(health) : kExitNoService;
}

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
