// SPDX-License-Identifier: MIT
#include "client/verbs/status.h"

#include <algorithm>
#include <optional>
#include <set>

#include "client/request/reading.h"
#include "client/service/queue_look.h"
#include "client/show/exit_status.h"

namespace client {

namespace {

// The cached device of a volume that was looked at.
std::string CachePathOf(const Status& status, const std::string& mountPath) {
    const auto found = std::find_if(
        status.volumes.begin(), status.volumes.end(),
        [&mountPath](const auto& volume) { return volume.view.mountPath == mountPath; });
    return found == status.volumes.end() ? "" : found->view.cachePath;
}

// Requests of other volumes that stand before the one that runs were passed over, which the service
// does for pending volumes only.
void TellStates(const std::vector<Volume>& volumes, Status& status) {
    const bool alive = !status.services.empty() && status.services.front().workerAlive;
    std::optional<RunningRequest> running;
    if (alive) {
        running = FindRunning(
            status.stored.state.queue, status.services.front(),
            [&status](const std::string& mountPath) { return CachePathOf(status, mountPath); });
    }
    const size_t at = running ? running->index : 0;
    for (size_t i = 0; i < status.requests.size(); ++i) {
        RequestStatus& request = status.requests[i];
        request.runs = running && i == at;
        request.state = request.runs ? "running"
                        : i < at     ? "waiting (overtaken: its volume was pending)"
                        : i == at && alive && !running ? "next, or just begun"
                                                       : "waiting";
        if (i >= at) {
            request.ahead = i - at;
        }
    }
    if (running) {
        RequestStatus& request = status.requests[at];
        const std::vector<FileMappingEntry> reading = ReadingOf(request.request, volumes);
        request.position = running->position;
        request.bytes = BytesOf(WrittenOf(reading));
        request.bytesRead = BytesRead(reading, running->position);
    }
}

VolumeStatus ReadVolume(const ConfigState& state, const Volume& volume) {
    VolumeStatus read;
    read.view = LookAt(volume);
    const auto pinned = state.pinned.find(volume.mountPath);
    read.files = pinned == state.pinned.end() ? 0 : pinned->second.size();
    read.health = HealthOf(read.view, read.files, 0);
    // The files are looked at where they decide alone: of 100,000 that takes seconds.
    if (read.health == PinHealth::kCached) {
        read.health = HealthOf(read.view, read.files, FindAbsent(state, volume, read.view).Count());
    }
    return read;
}

}  // namespace

Status ReadServiceStatus(const std::string& configPath) {
    Status status;
    // Service and queue before the file: a request that comes meanwhile is then in one of the two.
    status.services = FindServices();
    status.queueKnown = ReadQueueFacts(status.queue, status.queueWhy);
    // Looking for it takes a second, and only a service that should take messages can stand still.
    status.standsStill =
        !status.services.empty() && (status.services.front().stopped ||
                                     (status.queueKnown && status.services.front().intakeAlive &&
                                      MessagesStandStill(status.queue.id)));
    status.stored = ReadServiceState(configPath);
    return status;
}

Status ReadStatus(const std::string& configPath) {
    Status status = ReadServiceStatus(configPath);
    std::vector<Volume> volumes;
    std::set<std::string> wanted;
    // What is neither pinned nor asked for is no matter of the service's.
    for (const StoredRequest& request : status.stored.state.queue) {
        status.requests.push_back({request, ParseStoredFiles(request.data).size(), "", {}});
        wanted.insert(request.mountPath);
    }
    for (const auto& [mountPath, files] : status.stored.state.pinned) {
        wanted.insert(mountPath);
    }
    // Where they cannot be listed, service and queue are shown all the same.
    ListVolumes(volumes);
    for (const Volume& volume : volumes) {
        if (wanted.count(volume.mountPath) > 0) {
            status.volumes.push_back(ReadVolume(status.stored.state, volume));
        }
    }
    status.unmounted = UnmountedPaths(status.stored.state, volumes);
    TellStates(volumes, status);
    return status;
}

int ExitStatusOf(const Status& status) {
    const bool good = !status.services.empty() && status.services.front().intakeAlive &&
                      status.services.front().workerAlive && status.queueKnown &&
                      status.stored.known && !status.standsStill;
    // A volume that is not there cannot be told to agree.
    PinHealth health = status.unmounted.empty() ? PinHealth::kNothing : PinHealth::kDiffers;
    for (const VolumeStatus& volume : status.volumes) {
        health = std::max(health, volume.health);
    }
    return good ? ExitStatusOf(health) : kExitNoService;
}

}  // namespace client
