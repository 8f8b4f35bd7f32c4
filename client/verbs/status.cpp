// SPDX-License-Identifier: MIT
#include "client/verbs/status.h"

#include <set>

#include "client/service/queue_look.h"
#include "client/show/exit_status.h"

namespace client {

namespace {

const VolumeView* FindView(const std::vector<VolumeView>& views, const std::string& mountPath) {
    for (const VolumeView& view : views) {
        if (view.mountPath == mountPath) {
            return &view;
        }
    }
    return nullptr;
}

// The service is at the first request of a volume whose device it has open. Requests of other
// volumes that stand before that one were passed over, which it does for pending volumes only.
void TellStates(Status& status) {
    const bool alive = !status.services.empty() && status.services.front().workerAlive;
    std::set<std::string> begun;
    size_t running = status.requests.size();
    for (size_t i = 0; alive && i < status.requests.size() && running == status.requests.size();
         ++i) {
        RequestStatus& request = status.requests[i];
        const VolumeView* const view = FindView(status.volumes, request.request.mountPath);
        if (begun.insert(request.request.mountPath).second && view != nullptr &&
            !view->cachePath.empty() &&
            ReadPosition(status.services.front(), view->cachePath, request.position)) {
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

}  // namespace

Status ReadStatus(const std::string& configPath) {
    Status status;
    std::vector<Volume> volumes;
    std::set<std::string> wanted;
    status.services = FindServices();
    status.queueKnown = ReadQueueFacts(status.queue, status.queueWhy);
    status.standsStill = status.queueKnown && !status.services.empty() &&
                         status.services.front().intakeAlive && MessagesStandStill(status.queue.id);
    status.stored = ReadServiceState(configPath);
    for (const StoredRequest& request : status.stored.state.queue) {
        status.requests.push_back({request, ParseStoredFiles(request.data).size(), "", 0});
        wanted.insert(request.mountPath);
    }
    for (const auto& [mountPath, files] : status.stored.state.pinned) {
        wanted.insert(mountPath);
    }
    ListVolumes(volumes);
    for (const Volume& volume : volumes) {
        if (wanted.count(volume.mountPath) > 0) {
            status.volumes.push_back(LookAt(volume));
        }
    }
    TellStates(status);
    return status;
}

int ExitStatusOf(const Status& status) {
    const bool good = !status.services.empty() && status.services.front().intakeAlive &&
                      status.services.front().workerAlive && status.queueKnown &&
                      status.stored.known && !status.standsStill;
    return good ? kExitDone : kExitNoService;
}

}  // namespace client
