// SPDX-License-Identifier: MIT
#include "client/verbs/around_unit.h"

#include "client/show/exit_status.h"
#include "client/show/output.h"
#include "client/show/text.h"
#include "client/verbs/service_unit.h"

namespace client {

bool IsUnitAlone(const std::vector<ServiceProcess>& services) {
    return services.size() == 1 && services[0].pid == UnitMainProcess();
}

int AroundUnit(const std::vector<ServiceProcess>& services, const std::string& configPath,
               const char* command, const std::function<int()>& work) {
    // A path through the process's own root ends with the process.
    if (!IsUnitAlone(services) || StartsWith(configPath, "/proc/")) {
        Say("--restart: the service that runs is not " + std::string(kServiceUnit) +
            ", or its configuration file is not seen from here; stop it, run " + command +
            " --config-path FILE, and start it again; nothing was changed");
        return kExitRefused;
    }
    const SignalsPutOff putOff;
    int status = kExitNoService;
    if (StopUnit()) {
        status = work();
    } else {
        Say("--restart: " + std::string(kServiceUnit) + " cannot be stopped; nothing was changed");
    }
    if (!StartUnit()) {
        Say("--restart: " + std::string(kServiceUnit) +
            " cannot be started again; systemctl status shows why");
        status = kExitNoService;
    }
    return status;
}

}  // namespace client
