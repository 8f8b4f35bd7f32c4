// SPDX-License-Identifier: MIT
// status: the service, its queue, what is pinned.
#include "client/show/output.h"
#include "client/verbs/status.h"
#include "client/verbs/verbs.h"
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

void PrintService(const Status& status) {
    const std::string dead = Toned(Tone::kBad, "no, until it is started again");
    Table table("ll");
    if (status.services.empty()) {
        table.Add({"service", Toned(Tone::kBad, NoServiceText())});
    }
    for (const ServiceProcess& service : status.services) {
        table.Add({"service", "process " + std::to_string(service.pid) + " of " + service.user});
        const std::string taking = status.standsStill
                                       ? Toned(Tone::kBad, "no: it hangs, or was stopped")
                                       : Toned(Tone::kGood, "yes");
        table.Add({"", "takes requests: " + (service.intakeAlive ? taking : dead)});
        table.Add(
            {"", "carries them out: " + (service.workerAlive ? Toned(Tone::kGood, "yes") : dead)});
    }
    table.Add({"configuration", status.stored.known ? Printable(status.stored.configPath)
                                                    : Toned(Tone::kBad, status.stored.why)});
    for (const std::string& defect : status.stored.state.defects) {
        table.Add({"", Toned(Tone::kBad, defect)});
    }
    table.Add({"queue", !status.queueKnown
                            ? Toned(Tone::kBad, status.queueWhy)
                            : Counted(status.queue.messages, "message") + " waiting, room for " +
                                  std::to_string(status.queue.limit / sizeof(Request))});
    table.Show();
}

void PrintRequests(const Status& status) {
    if (status.requests.empty()) {
        Print("requests       none queued");
        return;
    }
    Table table("rlrll");
    for (const RequestStatus& item : status.requests) {
        table.Add({Printable(item.request.number), TypeText(item.request.type),
                   item.files > 0 ? Counted(item.files, "file") : "",
                   Printable(item.request.mountPath), item.state});
    }
    Print("requests       " + std::to_string(status.requests.size()) + " queued, in this order");
    table.Show("  ");
    Print(Toned(Tone::kDim, "  Whether a volume is pending is not visible from outside."));
}

void PrintVolumes(const Status& status) {
    for (const VolumeView& view : status.volumes) {
        const auto pinned = status.stored.state.pinned.find(view.mountPath);
        const size_t files = pinned == status.stored.state.pinned.end() ? 0 : pinned->second.size();
        const uint64_t set = view.bits.Count();
        std::string text = Counted(files, "file") + " pinned, " + Counted(set, "unit") + " = " +
                           HumanBytes(set * kUnitBytes);
        if (view.residency.known) {
            text += " of a cache of " + HumanBytes(view.residency.cacheSize) + ", " +
                    std::to_string(set - view.bits.CountWithout(view.residency.resident)) +
                    " in it now";
        } else if (view.cachePath.empty()) {
            text += "; " + Toned(Tone::kBad, "the volume has no cache");
        }
        Print("volume         " + Toned(Tone::kStrong, Printable(view.mountPath)) + ": " + text);
    }
}

Json::Value ServicesToJson(const std::vector<ServiceProcess>& services) {
    Json::Value list(Json::arrayValue);
    for (const ServiceProcess& service : services) {
        Json::Value item;
        item["pid"] = service.pid;
        item["user"] = service.user;
        item["intakeAlive"] = service.intakeAlive;
        item["workerAlive"] = service.workerAlive;
        item["configPath"] = service.configPath;
        list.append(item);
    }
    return list;
}

Json::Value QueueToJson(const Status& status) {
    Json::Value item;
    if (!status.queueKnown) {
        item["error"] = status.queueWhy;
        return item;
    }
    item["id"] = status.queue.id;
    item["key"] = status.queue.key;
    item["messages"] = static_cast<Json::UInt64>(status.queue.messages);
    item["bytes"] = static_cast<Json::UInt64>(status.queue.bytes);
    item["limitBytes"] = static_cast<Json::UInt64>(status.queue.limit);
    return item;
}

Json::Value RequestsToJson(const Status& status) {
    Json::Value list(Json::arrayValue);
    for (const RequestStatus& request : status.requests) {
        Json::Value item;
        item["number"] = request.request.number;
        item["type"] = request.request.type;
        item["volume"] = request.request.mountPath;
        item["files"] = static_cast<Json::UInt64>(request.files);
        item["state"] = request.state;
        if (request.state == "running") {
            item["devicePosition"] = static_cast<Json::UInt64>(request.position);
        }
        list.append(item);
    }
    return list;
}

Json::Value VolumesToJson(const Status& status) {
    Json::Value list(Json::arrayValue);
    for (const VolumeView& view : status.volumes) {
        const auto pinned = status.stored.state.pinned.find(view.mountPath);
        Json::Value item;
        item["mountPath"] = view.mountPath;
        item["files"] = static_cast<Json::UInt64>(
            pinned == status.stored.state.pinned.end() ? 0 : pinned->second.size());
        item["unitsSet"] = static_cast<Json::UInt64>(view.bits.Count());
        item["cacheBytes"] = Json::Value();
        item["unitsResident"] = Json::Value();
        if (view.residency.known) {
            item["cacheBytes"] = static_cast<Json::UInt64>(view.residency.cacheSize);
            item["unitsResident"] = static_cast<Json::UInt64>(
                view.bits.Count() - view.bits.CountWithout(view.residency.resident));
        }
        list.append(item);
    }
    return list;
}

}  // namespace

int StatusVerb(const StatusOptions& options) {
    const Status status = ReadStatus(options.common.configPath);
    const int exitStatus = ExitStatusOf(status);
    if (!options.common.json) {
        PrintService(status);
        PrintRequests(status);
        PrintVolumes(status);
        return exitStatus;
    }
    Json::Value report = NewReport("status");
    report["services"] = ServicesToJson(status.services);
    report["queue"] = QueueToJson(status);
    report["configPath"] = status.stored.configPath;
    report["defects"] = Json::Value(Json::arrayValue);
    for (const std::string& defect : status.stored.state.defects) {
        report["defects"].append(defect);
    }
    report["requests"] = RequestsToJson(status);
    report["volumes"] = VolumesToJson(status);
    PrintReport(report, exitStatus);
    return exitStatus;
}

}  // namespace client
