// SPDX-License-Identifier: MIT
// The repair by requests, with a service that carries them out.
#include <set>

#include "client/pins/price.h"
#include "client/request/file_check.h"
#include "client/show/exit_status.h"
#include "client/show/output.h"
#include "client/verbs/repair.h"

namespace client {

namespace {

// A file that a request is to pin.
struct PlannedPin {
    FileRef file;
    std::string done;  // in words, for when its request has been sent
};

struct RequestPlan {
    std::vector<PlannedPin> pins;
    Followers followers;
};

void Leave(const std::string& text, RepairReport& report) {
    report.left.push_back("left for a repair at rest: " + text);
}

void PlanPin(const FileRef& file, const std::string& done, RequestPlan& plan,
             RepairReport& report) {
    const std::string why = WhyNotStorable(file.volume->mountPath, file.relative);
    if (why.empty()) {
        plan.pins.push_back({file, done});
    } else {
        Leave(Printable(file.path) + " cannot be pinned by a request: " + why, report);
    }
}

// Pins what lies at a replaced file's path, unless it is pinned already.
void PlanFollower(const DeviceState& device, const PinnedFile& pinned, const std::string& path,
                  RequestPlan& plan, RepairReport& report) {
    const Follower& follower = plan.followers.at(path);
    if (!follower.why.empty()) {
        report.left.push_back(Printable(path) +
                              ": what is there now is not pinned: " + follower.why);
    } else if (FindListed(device, pinned.mountPath, follower.file.inode) == nullptr) {
        PlanPin(follower.file, Printable(path) + ": replaced, the file that is there now is pinned",
                plan, report);
    }
}

void PlanFile(const DeviceState& device, const PinnedFile& pinned, RequestPlan& plan,
              RepairReport& report) {
    const std::string path = ListedPath(pinned);
    const std::string start = Printable(path) + ": " + FateName(pinned.fate);
    // A request for what cannot be looked at would end the service's intake.
    if (pinned.fate == Fate::kUnknown) {
        report.left.push_back(start + ": " + pinned.why);
        return;
    }
    // Renamed files too: a pin by the new path sets the units, and the entry keeps its old name.
    if (device.missing.CountIn(pinned.units) > 0) {
        PlanPin(pinned.file, Printable(path) + ": pinned again", plan, report);
    }
    if (pinned.fate == Fate::kReplaced) {
        PlanFollower(device, pinned, path, plan, report);
    }
    if (pinned.fate != Fate::kThere) {  // no request takes an entry off, or renames it
        Leave(start, report);
    }
}

// What no request does about the device's bitmap; one that pins hands it to the driver.
void NameBitmapFaults(const DeviceState& device, bool pins, RepairReport& report) {
    const std::string name = Printable(device.view.mountPath) + ": ";
    if (device.surplus.Count() > 0) {
        Leave(name + Counted(device.surplus.Count(), "unit") + " that no file needs", report);
    }
    if (!pins && device.driverLacks.Count() + device.driverSurplus.Count() > 0) {
        Leave(name + "the driver has another bitmap than the file", report);
    }
}

void PlanDevice(const DeviceState& device, RequestPlan& plan, RepairReport& report) {
    const size_t before = plan.pins.size();
    // The service would drop the request and forget all that is pinned on the volume.
    if (!VolumeKeepsPins(*device.mounts.front())) {
        report.left.push_back(Printable(device.view.mountPath) +
                              ": has no cache that keeps pins now");
        return;
    }
    if (device.fileTooLong) {
        Leave(Printable(device.view.bitmapPath) + " is too long, so that every request fails",
              report);
        return;
    }
    for (const PinnedFile& pinned : device.listed) {
        PlanFile(device, pinned, plan, report);
    }
    NameBitmapFaults(device, plan.pins.size() > before, report);
}

// Takes the device's pins, those from `first`, out of the plan when its cache does not hold them.
void LeaveUnfitting(const ConfigState& state, size_t first, RequestPlan& plan,
                    RepairReport& report) {
    std::vector<FileRef> files;
    for (size_t i = first; i < plan.pins.size(); ++i) {
        files.push_back(plan.pins[i].file);
    }
    const std::vector<Overcommit> found = FindOvercommits(state, files);
    for (const Overcommit& overcommit : found) {
        report.left.push_back(overcommit.why + kOvercommitRemedy);
    }
    if (!found.empty()) {
        plan.pins.resize(first);
    }
}

// Says what the requests that were sent do, and what was not asked for.
void RecordPins(const RequestPlan& plan, const std::vector<Message>& messages,
                RepairReport& report) {
    // By what the messages say, since files that had vanished were taken out of them.
    std::set<std::pair<std::string, uint32_t>> sent;
    for (size_t i = 0; i < report.requests; ++i) {
        for (const StoredFile& file : ParseStoredFiles(messages[i].stored)) {
            sent.insert({messages[i].mountPath, file.inode});
        }
    }
    for (const PlannedPin& pin : plan.pins) {
        if (sent.count({pin.file.volume->mountPath, pin.file.inode}) > 0) {
            report.actions.push_back(pin.done);
        } else {
            report.left.push_back(Printable(pin.file.path) + ": its request was not sent");
        }
    }
}

int Send(const RequestPlan& plan, const std::string& configPath, SendOptions options,
         RepairReport& report) {
    std::vector<FileRef> files;
    for (const PlannedPin& pin : plan.pins) {
        files.push_back(pin.file);
    }
    std::vector<Message> messages = PackFiles(kRequestPinFiles, files);
    if (messages.empty()) {
        return kExitDone;
    }
    options.wait = true;  // the check that follows is to show what they did
    const int status = SendAndWait(messages, configPath, options, report.requests);
    RecordPins(plan, messages, report);
    // Files that have vanished since are found when it is checked again.
    return status == kExitPartly ? kExitDone : status;
}

}  // namespace

int RepairByRequests(const std::string& configPath, const std::string& mountPath,
                     const CheckOptions& options, RepairReport& report) {
    std::vector<Volume> volumes;
    ConfigState state;
    RequestPlan plan;
    std::string why;
    if (!ListVolumes(volumes) || !ReadConfigState(configPath, state, why)) {
        Say(why.empty() ? "the volumes cannot be listed" : why);
        return kExitNoService;
    }
    const std::vector<DeviceState> devices = ReadDevices(state, volumes, mountPath);
    plan.followers = FindFollowers(devices, volumes);
    for (const DeviceState& device : devices) {
        if (!Agrees(device)) {
            const size_t first = plan.pins.size();
            PlanDevice(device, plan, report);
            if (!options.overcommit) {
                LeaveUnfitting(state, first, plan, report);
            }
        }
    }
    return Send(plan, configPath, options.send, report);
}

}  // namespace client
