// SPDX-License-Identifier: MIT
// check: list, disk, bitmap file and driver against each other, and setting them right.
#include <time.h>
#include <unistd.h>

#include <algorithm>

#include "client/pins/device_report.h"
#include "client/pins/pin_health.h"
#include "client/request/unneeded_links.h"
#include "client/service/config_state.h"
#include "client/service/queue.h"
#include "client/service/repair_record.h"
#include "client/service/service_process.h"
#include "client/show/exit_status.h"
#include "client/show/output.h"
#include "client/verbs/repair.h"
#include "client/verbs/verbs.h"
#include "client/volume/plain_links.h"

namespace client {

namespace {

// What a check looks at.
struct Scene {
    std::vector<Volume> volumes;
    ServiceState service;
    std::string mountPath;  // empty = all
    std::vector<DeviceState> devices;
    std::vector<std::string> unmounted;
    bool judged = false;                     // everything could be read
    PinHealth health = PinHealth::kNothing;  // the worst of them
};

// Reads everything afresh. Returns an exit status.
int Look(const CheckOptions& options, Scene& scene, Record& report) {
    std::string why;
    scene = Scene();
    if (!ListVolumes(scene.volumes)) {
        return Fail(report, kExitNoService, "the volumes cannot be listed");
    }
    scene.service = ReadServiceState(options.common.configPath);
    if (!scene.service.known) {
        return Fail(report, kExitNoService, scene.service.why);
    }
    scene.unmounted = UnmountedPaths(scene.service.state, scene.volumes);
    if (!options.volume.empty()) {
        const Volume* const volume = ResolveVolume(options.volume, scene.volumes, why);
        if (volume == nullptr) {
            return Refuse(report, options.volume, why);
        }
        scene.mountPath = volume->mountPath;
        // Only the volume that was named is judged.
        scene.unmounted.clear();
    }
    scene.devices = ReadDevices(scene.service.state, scene.volumes, scene.mountPath);
    // A volume that is not there cannot be told to agree.
    scene.health = scene.unmounted.empty() ? PinHealth::kNothing : PinHealth::kDiffers;
    for (const DeviceState& device : scene.devices) {
        scene.health = std::max(scene.health, HealthOf(device));
    }
    scene.judged = true;
    return ExitStatusOf(scene.health);
}

void Describe(const Scene& scene, const char* name, Record& report) {
    std::vector<Record> records = RecordsOf(scene.devices, DescribeDevice);
    for (const std::string& mountPath : scene.unmounted) {
        records.push_back(DescribeUnmounted(
            mountPath, UnmountedEntries(scene.service.state.pinned.at(mountPath), mountPath)));
    }
    report.List(name, records, Layout::kBlocks);
    if (records.empty()) {
        report.Line("nothing is pinned, nothing to check");
    }
}

// Notes a repair that did something, for those that ask when the last one was.
void Note(const std::string& configPath, const RepairReport& repair) {
    std::string why;
    if (!repair.actions.empty() &&
        !NoteRepair(configPath, {time(nullptr), repair.left.size()}, why)) {
        Say("the repair cannot be noted: " + why);
    }
}

// Repairs what was found and looks again. Returns an exit status.
int RepairAndLook(const CheckOptions& options, Scene& scene, Record& report) {
    RepairReport repair;
    // The repair may wait for minutes; what it is about should stand there already.
    if (!options.common.json) {
        report.Print();
    }
    int status = Repair(options, scene.service.configPath, scene.mountPath, repair);
    Note(scene.service.configPath, repair);
    report.Member("repair", DescribeRepair(repair, status == kExitDone));
    scene.judged = false;
    if (status == kExitDone) {
        status = Look(options, scene, report);
        Describe(scene, "volumesAfterRepair", report);
    }
    return status;
}

// Whether nobody can be about to need a link that neither list nor queue names.
bool IsAllQuiet() {
    QueueFacts queue;
    std::string why;
    // Only root sees whether a service runs. Without a queue nothing waits in one.
    return geteuid() == 0 && FindServices().empty() &&
           (!ReadQueueFacts(queue, why) || queue.messages == 0);
}

// Takes away links whose files are gone otherwise, listed or not, and at rest those that are not
// needed.
void TakeLinksAway(const Scene& scene, Record& report) {
    std::vector<std::string> removed;
    const auto note = [&](const Volume& volume, const std::vector<std::string>& links,
                          const char* what) {
        for (const std::string& relative : links) {
            removed.push_back(PathOnVolume(volume.mountPath, relative));
            report.Line(Printable(removed.back()) + what);
        }
    };
    // Read when it is known to be quiet: a service may have run until just now.
    const bool quiet = IsAllQuiet();
    ConfigState now;
    std::string why;
    const bool known = quiet && ReadConfigState(scene.service.configPath, now, why);
    for (const Volume& volume : scene.volumes) {
        const bool meant = scene.mountPath.empty() || volume.mountPath == scene.mountPath;
        if (!meant || !VolumeKeepsPins(volume)) {
            continue;
        }
        note(volume, RemoveLastNames(volume.mountPath), ": was its file's last name, removed");
        if (known) {
            note(volume, RemoveUnneededLinks(volume.mountPath, now),
                 ": is needed by no pinned file, removed");
        }
    }
    report.Add("linksRemoved", TextsToJson(removed));
}

}  // namespace

int CheckVerb(const CheckOptions& options) {
    Record report;
    Scene scene;
    int status = Look(options, scene, report);
    if (scene.judged) {
        Describe(scene, "volumes", report);
    }
    // What agrees needs no repair, and no restart of the service.
    if (scene.judged && options.repair && scene.health >= PinHealth::kDiffers) {
        status = RepairAndLook(options, scene, report);
    }
    if (scene.judged && options.repair) {
        TakeLinksAway(scene, report);
    }
    return Finish("check", report, options.common.json, status);
}

}  // namespace client
