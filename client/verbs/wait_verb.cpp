// SPDX-License-Identifier: MIT
// wait: until nothing is queued any more.
#include <algorithm>

#include "client/request/watch.h"
#include "client/service/config_state.h"
#include "client/show/exit_status.h"
#include "client/show/output.h"
#include "client/show/report.h"
#include "client/verbs/verbs.h"
#include "client/volume/volumes.h"

namespace client {

namespace {

// Stores the mount path that requests have for the volume that was given. One that is not mounted
// can be named too, while requests of it are queued.
bool FindMountPath(const std::string& given, const ConfigState& state, std::string& mountPath,
                   std::string& why) {
    const auto names = [&given](const StoredRequest& request) {
        return request.mountPath == given;
    };
    std::vector<Volume> volumes;
    if (std::any_of(state.queue.begin(), state.queue.end(), names)) {
        mountPath = given;
        return true;
    }
    ListVolumes(volumes);
    const Volume* const volume = ResolveVolume(given, volumes, why);
    mountPath = volume == nullptr ? "" : volume->mountPath;
    return volume != nullptr;
}

}  // namespace

int WaitVerb(const WaitVerbOptions& options) {
    Record report;
    WaitOptions wait;
    std::string mountPath;
    std::string why;
    const ServiceState service = ReadServiceState(options.common.configPath);
    if (!service.known) {
        return Finish("wait", report, options.common.json,
                      Fail(report, kExitNoService, service.why));
    }
    if (!options.volume.empty() && !FindMountPath(options.volume, service.state, mountPath, why)) {
        return Finish("wait", report, options.common.json, Refuse(report, options.volume, why));
    }
    wait.configPath = service.configPath;
    wait.timeout = options.send.timeout;
    wait.queueOf = mountPath;
    std::vector<Watched> requests;
    const int status = WaitForRequests(requests, wait);
    const auto left = std::count_if(requests.begin(), requests.end(), [](const Watched& request) {
        return request.state == WatchState::kLeft;
    });
    report.Add("volume", IfAny(mountPath))
        .Add("requests", requests.size())
        .Add("left", static_cast<size_t>(left));
    if (status == kExitDone) {
        report.Line((requests.empty() ? "nothing was queued"
                                      : Counted(requests.size(), "request has", "requests have") +
                                            " left the queue, status shows what holds") +
                    (mountPath.empty() ? "" : " (" + Printable(mountPath) + ")"));
    }
    return Finish("wait", report, options.common.json, status);
}

}  // namespace client
