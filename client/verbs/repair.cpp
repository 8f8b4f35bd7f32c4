// SPDX-License-Identifier: MIT
#include "client/verbs/repair.h"

#include <algorithm>

#include "client/service/service_process.h"
#include "client/show/exit_status.h"
#include "client/show/output.h"
#include "client/verbs/around_unit.h"

namespace client {

int Repair(const CheckOptions& options, const std::string& configPath, const std::string& mountPath,
           RepairReport& report) {
    const std::vector<ServiceProcess> services = FindServices();
    if (services.empty()) {
        return RepairAtRest(configPath, mountPath, options.overcommit, report);
    }
    // By another one's list every pin would seem to be left over.
    if (IsAnothersConfig(configPath)) {
        Say("--repair: " + Printable(configPath) +
            " is not the configuration file of the service that runs; nothing was changed");
        return kExitNoService;
    }
    if (options.restart) {
        return AroundUnit(services, configPath, "check --repair", [&] {
            return RepairAtRest(configPath, mountPath, options.overcommit, report);
        });
    }
    const bool works =
        std::any_of(services.begin(), services.end(), [&configPath](const ServiceProcess& service) {
            return service.intakeAlive && service.workerAlive && IsConfigOf(service, configPath);
        });
    if (!works) {
        Say("--repair: the service has stopped working; --restart starts it again, doctor may "
            "show why; nothing was changed");
        return kExitNoService;
    }
    return RepairByRequests(configPath, mountPath, options, report);
}

Record DescribeRepair(const RepairReport& repair, bool done) {
    Record record;
    record.Add("requests", repair.requests)
        .Add("unitsCleared", repair.unitsCleared)
        .Add("unitsSet", repair.unitsSet)
        .Add("actions", TextsToJson(repair.actions))
        .Add("left", TextsToJson(repair.left));
    for (const std::string& action : repair.actions) {
        record.Line("  repair: " + action);
    }
    for (const std::string& left : repair.left) {
        record.Line("  " + Toned(Tone::kBad, "not repaired") + ": " + left);
    }
    if (repair.requests > 0) {
        record.Line("  " + Counted(repair.requests, "request") + " sent" +
                    (done ? " and done" : ", not waited for to the end"));
    }
    return done ? record.Line("checked again:") : record;
}

}  // namespace client
