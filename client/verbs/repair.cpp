// SPDX-License-Identifier: MIT
#include "client/verbs/repair.h"

#include <algorithm>

#include "client/service/service_process.h"
#include "client/show/exit_status.h"
#include "client/show/output.h"
#include "client/show/text.h"
#include "client/verbs/service_unit.h"

namespace client {

namespace {

// Whether the services that run are the unit's one process, so that it can be stopped and started.
bool IsUnitAlone(const std::vector<ServiceProcess>& services) {
    return services.size() == 1 && services[0].pid == UnitMainProcess();
}

int RepairAround(const std::vector<ServiceProcess>& services, const std::string& configPath,
                 const std::string& mountPath, RepairReport& report) {
    // A path through the process's own root ends with the process.
    if (!IsUnitAlone(services) || StartsWith(configPath, "/proc/")) {
        Say("--restart: the service that runs is not " + std::string(kServiceUnit) +
            ", or its configuration file is not seen from here; stop it, run check --repair "
            "--config-path FILE, and start it again; nothing was changed");
        return kExitRefused;
    }
    // From here to the start nothing may end this command: the service would stay stopped.
    const SignalsPutOff putOff;
    int status = kExitNoService;
    if (StopUnit()) {
        status = RepairAtRest(configPath, mountPath, report);
    } else {
        Say("--restart: " + std::string(kServiceUnit) + " cannot be stopped; nothing was changed");
    }
    // Whatever the repair came to: a service that does not run is worse than a bit left over.
    if (!StartUnit()) {
        Say("--restart: " + std::string(kServiceUnit) +
            " cannot be started again; systemctl status shows why");
        status = kExitNoService;
    }
    return status;
}

}  // namespace

int Repair(const CheckOptions& options, const std::string& configPath, const std::string& mountPath,
           RepairReport& report) {
    const std::vector<ServiceProcess> services = FindServices();
    if (services.empty()) {
        return RepairAtRest(configPath, mountPath, report);
    }
    // By another one's list every pin would seem to be left over.
    if (IsAnothersConfig(configPath)) {
        Say("--repair: " + Printable(configPath) +
            " is not the configuration file of the service that runs; nothing was changed");
        return kExitNoService;
    }
    if (options.restart) {
        return RepairAround(services, configPath, mountPath, report);
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
    return RepairByRequests(configPath, mountPath, options.send, report);
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
