// SPDX-License-Identifier: MIT
// check: what is pinned against the bitmap, and setting it right.
#include "client/pins/check.h"
#include "client/show/exit_status.h"
#include "client/show/output.h"
#include "client/verbs/repair.h"
#include "client/service/service_process.h"
#include "client/verbs/verbs.h"

namespace client {

namespace {

struct Findings {
    std::vector<Volume> volumes;
    ServiceState service;
    std::string mountPath;  // empty = all
    std::vector<VolumeCheck> checks;
};

// Reads everything afresh and checks. Returns an exit status.
int Look(const CheckOptions& options, Findings& findings) {
    std::string why;
    findings.volumes.clear();
    if (!ListVolumes(findings.volumes)) {
        Say("the volumes cannot be listed");
        return kExitNoService;
    }
    findings.service = ReadServiceState(options.common.configPath);
    if (!findings.service.known) {
        Say(findings.service.why);
        return kExitNoService;
    }
    if (!options.volume.empty()) {
        const Volume* const volume = ResolveVolume(options.volume, findings.volumes, why);
        if (volume == nullptr) {
            Say(Printable(options.volume) + ": " + why);
            return kExitRefused;
        }
        findings.mountPath = volume->mountPath;
    }
    findings.checks = CheckVolumes(findings.service.state, findings.volumes, findings.mountPath);
    return kExitDone;
}

int StatusOf(const Findings& findings) {
    for (const VolumeCheck& check : findings.checks) {
        if (!IsClean(check)) {
            return kExitPartly;
        }
    }
    return kExitDone;
}

// Whether there is a service that would carry out what is sent, and whose file was read: by another
// one's list every pin would seem to be left over.
bool ServiceWorks(const std::string& configPath) {
    if (IsAnothersConfig(configPath)) {
        Say("--repair: " + Printable(configPath) +
            " is not the configuration file of the service that runs; nothing was changed");
        return false;
    }
    for (const ServiceProcess& service : FindServices()) {
        if (service.intakeAlive && service.workerAlive && IsConfigOf(service, configPath)) {
            return true;
        }
    }
    Say("--repair: the service does not run, or has stopped working; doctor may tell why");
    return false;
}

Json::Value ToJson(const std::vector<std::string>& texts) {
    Json::Value list(Json::arrayValue);
    for (const std::string& text : texts) {
        list.append(text);
    }
    return list;
}

void PrintRepair(const RepairReport& repair, bool done) {
    for (const std::string& action : repair.actions) {
        Print("  repair: " + action);
    }
    for (const std::string& obstacle : repair.obstacles) {
        Print("  " + Toned(Tone::kBad, "not repaired") + ": " + obstacle);
    }
    Print("  " + Counted(repair.requests, "request") + " sent" +
          (done ? " and done; checked again:" : ", not waited for to the end"));
}

// Repairs what was found and looks again. Returns an exit status.
int RepairAndLook(const CheckOptions& options, Findings& findings, Json::Value& report) {
    RepairReport repair;
    const bool works = ServiceWorks(findings.service.configPath);
    int status =
        works ? Repair(findings.checks, findings.volumes, findings.service, options.send, repair)
              : kExitNoService;
    report["repair"]["requests"] = static_cast<Json::UInt64>(repair.requests);
    report["repair"]["unitsCleared"] = static_cast<Json::UInt64>(repair.unitsCleared);
    report["repair"]["actions"] = ToJson(repair.actions);
    report["repair"]["obstacles"] = ToJson(repair.obstacles);
    if (works && !options.common.json) {
        PrintRepair(repair, status == kExitDone);
    }
    if (status == kExitDone && (status = Look(options, findings)) == kExitDone) {
        status = StatusOf(findings);
        report["volumesAfterRepair"] = CheckToJson(findings.checks);
        if (!options.common.json) {
            PrintChecks(findings.checks);
        }
    }
    return status;
}

}  // namespace

int CheckVerb(const CheckOptions& options) {
    Json::Value report = NewReport("check");
    Findings findings;
    int status = Look(options, findings);
    if (status == kExitDone) {
        status = StatusOf(findings);
        report["volumes"] = CheckToJson(findings.checks);
        if (!options.common.json) {
            PrintChecks(findings.checks);
        }
    }
    if (status == kExitPartly && options.repair) {
        status = RepairAndLook(options, findings, report);
    }
    if (options.common.json) {
        PrintReport(report, status);
    }
    return status;
}

}  // namespace client
