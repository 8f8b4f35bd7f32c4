// SPDX-License-Identifier: MIT
// forget: takes a volume that is gone for good off the list and out of the queue.
#include <unistd.h>

#include <algorithm>

#include "client/service/config_state.h"
#include "client/service/service_process.h"
#include "client/service/stored_list.h"
#include "client/show/exit_status.h"
#include "client/show/output.h"
#include "client/show/report.h"
#include "client/verbs/verbs.h"
#include "client/volume/volumes.h"

namespace client {

namespace {

// An empty text, or why this volume is not to be forgotten.
std::string WhyNotForget(const std::string& mountPath, const ConfigState& state,
                         const std::vector<Volume>& volumes) {
    if (geteuid() != 0) {
        return "only root sees whether the service runs";
    }
    if (!FindServices().empty()) {
        return "the service runs; stop it first";
    }
    if (FindMounted(mountPath, volumes) != nullptr) {
        return "it is mounted; unpin its files instead";
    }
    const bool queued =
        std::any_of(state.queue.begin(), state.queue.end(),
                    [&](const StoredRequest& request) { return request.mountPath == mountPath; });
    return queued || state.pinned.count(mountPath) > 0 ? ""
                                                       : "neither list nor queue names this volume";
}

}  // namespace

int ForgetVerb(const ForgetOptions& options) {
    Record report;
    std::string path;
    std::string why;
    std::vector<Volume> volumes;
    ConfigState state;
    StoredList stored;
    // Read under the lock: a repair that has just ended may have changed it.
    if (!FindConfigPath(options.common.configPath, path, why) || !stored.Lock(path, why) ||
        !ReadConfigState(path, state, why)) {
        return Finish("forget", report, options.common.json, Fail(report, kExitNoService, why));
    }
    if (!ListVolumes(volumes)) {
        return Finish("forget", report, options.common.json,
                      Fail(report, kExitNoService, "the volumes cannot be listed"));
    }
    why = WhyNotForget(options.mountPath, state, volumes);
    if (!why.empty()) {
        return Finish("forget", report, options.common.json,
                      Refuse(report, options.mountPath, why));
    }
    if (!stored.Forget(options.mountPath, why)) {
        return Finish("forget", report, options.common.json, Fail(report, kExitPartly, why));
    }
    report.Add("volume", options.mountPath).Line(Printable(options.mountPath) + ": forgotten");
    return Finish("forget", report, options.common.json, kExitDone);
}

}  // namespace client
