// SPDX-License-Identifier: MIT
// status: the service, its queue and what is pinned, once or again and again.
#include <stdio.h>
#include <time.h>
#include <unistd.h>

#include <optional>

#include "client/request/pace.h"
#include "client/service/queue_look.h"
#include "client/show/exit_status.h"
#include "client/show/output.h"
#include "client/show/poll.h"
#include "client/show/progress.h"
#include "client/show/report.h"
#include "client/show/text.h"
#include "client/verbs/status.h"
#include "client/verbs/verbs.h"
#include "util/request.h"

namespace client {

namespace {

constexpr double kWatchPause = 1;  // seconds

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

Record DescribeRequest(const RequestStatus& item) {
    Record record;
    const std::optional<unsigned> percent = Percent(item.bytesRead, item.bytes);
    const std::string share =
        percent ? ", " + std::to_string(*percent) + "% of " + HumanBytes(item.bytes) + " read" : "";
    record.Add("number", item.request.number, "")
        .Shown("type", item.request.type, "", TypeText(item.request.type))
        .Shown("files", item.files, "", item.files > 0 ? Counted(item.files, "file") : "")
        .Add("volume", item.request.mountPath, "")
        .Shown("state", item.state, "", item.state + share)
        .Add("ahead", IfKnown(item.ahead.has_value(), item.ahead.value_or(0)));
    // Anywhere else these would be those of an older request.
    if (item.runs) {
        record.Add("devicePosition", item.position)
            .Add("bytes", IfKnown(item.bytes > 0, item.bytes))
            .Add("bytesRead", IfKnown(item.bytes > 0, item.bytesRead))
            .Add("percent", IfKnown(percent.has_value(), percent.value_or(0)));
    }
    return record;
}

// `seconds` is about how long all of them take, 0 when it is not known.
void AddRequests(const Status& status, double seconds, Record& report) {
    const size_t count = status.requests.size();
    report
        .Row("requests", count == 0 ? "none queued"
                                    : std::to_string(count) + " queued, in this order" +
                                          (seconds > 0 ? ", about " + Minutes(seconds) : ""))
        .List("requests", RecordsOf(status.requests, DescribeRequest), Layout::kRows)
        .Add("requestsSeconds", IfKnown(seconds > 0, static_cast<uint64_t>(seconds)));
    if (count > 0) {
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

// Where the screen of a terminal begins again, elsewhere a block does.
void BeginBlock(bool json, Record& report) {
    if (json) {
        return;
    }
    if (isatty(STDOUT_FILENO) == 1) {
        fputs("\033[H\033[J", stdout);
    }
    report.Line(Toned(Tone::kDim, TimeText(time(nullptr))));
}

int ShowStatus(const StatusOptions& options, Pace& pace) {
    const Status status = ReadStatus(options.common.configPath);
    Record report;
    pace.Look(status.stored.state.queue, MonotonicSeconds());
    if (options.watch) {
        BeginBlock(options.common.json, report);
    }
    AddServices(status, report);
    AddConfiguration(status, report);
    AddQueue(status, report);
    AddRequests(status, pace.SecondsFor(status.requests.size()), report);
    AddVolumes(status, report);
    return Finish("status", report, options.common.json, ExitStatusOf(status));
}

// Ends by a signal, or when nobody reads on.
int WatchStatus(const StatusOptions& options) {
    const SignalNote note;
    const Poll poll(kWatchPause, kNoLimit, &note);
    const bool blocks = !options.common.json && isatty(STDOUT_FILENO) == 0;
    Pace pace;
    int status = ShowStatus(options, pace);
    while (fflush(stdout) == 0 && poll.Again()) {
        if (blocks) {
            Print("");
        }
        status = ShowStatus(options, pace);
    }
    return status;
}

}  // namespace

int StatusVerb(const StatusOptions& options) {
    Pace pace;
    return options.watch ? WatchStatus(options) : ShowStatus(options, pace);
}

}  // namespace client
