// SPDX-License-Identifier: MIT
// check: what is pinned against the bitmap, and setting it right.
#include "client/pins/check.h"
#include "client/service/service_state.h"
#include "client/show/exit_status.h"
#include "client/show/output.h"
#include "client/verbs/repair.h"
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

// Repairs what was found and looks again. Returns an exit status.
int RepairAndLook(const CheckOptions& options, Findings& findings, Json::Value& report) {
    RepairReport repair;
    int status = Repair(options, findings.service.configPath, findings.mountPath, repair);
    report["repair"] = RepairToJson(repair);
    if (!options.common.json) {
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
